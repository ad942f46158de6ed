// How a trace names the build that wrote it.
#ifndef KEEL_COMMON_UT_TRACEBUILD_H
#define KEEL_COMMON_UT_TRACEBUILD_H

constexpr const char *traceProduct = "ARCA 7.1.3.0 DEVBUILD";
constexpr const char *traceBuildDate = __DATE__;

#endif
