#pragma once

// The symbols of the file calls on 32-bit machines, which use 64-bit file sizes too.
#if __SIZEOF_LONG__ == 4
#define __real_fcntl __real_fcntl64
#define __wrap_fcntl __wrap_fcntl64
#define __real_open  __real_open64
#define __wrap_open  __wrap_open64
#define __real_stat  __real_stat64
#define __wrap_stat  __wrap_stat64
#endif
