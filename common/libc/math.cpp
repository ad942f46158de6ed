// The C library has had faster forms of these since 2.29, under a newer version of the names; a
// library that is linked in uses them. Bound to the first ones, the product loads on older systems.
#include <features.h>

#if defined(__x86_64__) && defined(__GLIBC__)

extern "C" {
double keelOldExp(double x);
double keelOldLog(double x);
double keelOldPow(double x, double y);
__asm__(".symver keelOldExp, exp@GLIBC_2.2.5");
__asm__(".symver keelOldLog, log@GLIBC_2.2.5");
__asm__(".symver keelOldPow, pow@GLIBC_2.2.5");

__attribute__((visibility("hidden"))) double exp(double x)
{
    return keelOldExp(x);
}

__attribute__((visibility("hidden"))) double log(double x)
{
    return keelOldLog(x);
}

__attribute__((visibility("hidden"))) double pow(double x, double y)
{
    return keelOldPow(x, y);
}
}

#endif
