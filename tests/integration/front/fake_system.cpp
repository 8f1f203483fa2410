// A system GL library without GL: each function says whose it is. It lacks glAccum.

#define EXPORT extern "C" __attribute__((visibility("default")))

#define KOR_ENTRY(name)                                                                            \
    EXPORT const char* name() {                                                                    \
        return "system:" #name;                                                                    \
    }
#include "core/entry_points.def"
KOR_ENTRY(glGetError)
KOR_ENTRY(glVertex3f)
KOR_ENTRY(glGenBuffers)
KOR_ENTRY(glXSwapIntervalSGI)
KOR_ENTRY(glXGetScreenDriver)
#undef KOR_ENTRY

// Arguments and results of every kind: more integers and floating-point numbers than there are
// registers, mixed.
EXPORT double glMap2d(int a, double b, long c, float d, short e, double f, void* g, float h,
                      unsigned i, double j, long long k, float l, double m, double n, float o,
                      double p, int q, int r) {
    return a + 2 * b + 3.0 * c + 4 * d + 5 * e + 6 * f + (g == &g ? 0 : 7) + 8 * h + 9.0 * i +
           10 * j + 11.0 * static_cast<double>(k) + 12 * l + 13 * m + 14 * n + 15 * o + 16 * p +
           17 * q + 18 * r;
}

EXPORT float glColor4f(float a, float b, float c, float d) {
    return a + 10 * b + 100 * c + 1000 * d;
}

EXPORT long glVertex4i(int a, int b, int c, int d, int e, int f, int g, int h) {
    return a + 10L * b + 100L * c + 1000L * d + 10000L * e + 100000L * f + 1000000L * g +
           10000000L * h;
}

#if defined(__x86_64__)
/// The upper halves of the vector registers are not arguments, but the low 128 bits are.
using Four = float __attribute__((vector_size(16)));
EXPORT float glVertex4fv(Four a, Four b, Four c, Four d, Four e, Four f, Four g, Four h) {
    const Four sum = a + 2 * b + 3 * c + 4 * d + 5 * e + 6 * f + 7 * g + 8 * h;
    return sum[0] + 10 * sum[1] + 100 * sum[2] + 1000 * sum[3];
}
#endif
