// Platform tracing markers. They cost nothing on the host.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void trace_begin(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void trace_end(void);

#ifdef __cplusplus
}
#endif
