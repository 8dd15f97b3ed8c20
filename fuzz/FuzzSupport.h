// What every fuzz target shares: quiet logging and a check that ends the run when a parser breaks a
// promise of its header.
#pragma once

#include <cstdio>
#include <cstdlib>

// The parsers log; the lines are formatted as usual but go nowhere, so that the fuzzer spends its time
// in the code under test and its own output stays readable.
#define TAK_FUZZ_QUIET_LOG()                             \
    extern "C" int LLVMFuzzerInitialize(int*, char***) { \
        setenv("ORVIX_LOG_FILE", "/dev/null", 1);        \
        return 0;                                        \
    }

#define TAK_FUZZ_CHECK(condition)                                                           \
    do {                                                                                    \
        if (!(condition)) {                                                                 \
            fprintf(stderr, "%s:%d: broken promise: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                        \
        }                                                                                   \
    } while (0)
