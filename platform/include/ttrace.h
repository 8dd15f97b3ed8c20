// Platform tracing markers: on the host, Chrome trace events in <root>/var/log/tak-reset.trace.json.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void trace_begin(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void trace_end(void);

#ifdef __cplusplus
}
#endif
