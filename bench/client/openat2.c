// SPDX-License-Identifier: Apache-2.0
//
// Preloaded under valgrind, which knows no openat2(2): opens as openat(2) does, without the bounds.

#define _GNU_SOURCE
#include <fcntl.h>
#include <linux/openat2.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

long syscall(long number, ...)
{
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (int i = 0; i < 6; i++)
        arguments[i] = va_arg(list, long);
    va_end(list);

    if (number == SYS_openat2) {
        const struct open_how* how = (const struct open_how*)arguments[2];
        return openat((int)arguments[0], (const char*)arguments[1], (int)how->flags,
                      (mode_t)how->mode);
    }
    long result;
    register long r10 __asm__("r10") = arguments[3];
    register long r8 __asm__("r8") = arguments[4];
    register long r9 __asm__("r9") = arguments[5];
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(arguments[0]), "S"(arguments[1]), "d"(arguments[2]),
                       "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    if (result >= -4095 && result < 0) {
        extern int* __errno_location(void);
        *__errno_location() = (int)-result;
        return -1;
    }
    return result;
}
