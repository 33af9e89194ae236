// Mathematics. The compiler's library computes it in the x87 unit, whose state the kernel does not
// keep for drivers. Detecting faces takes no more than square roots, which are instructions of the
// SSE unit; the rest is linked only because functions beside the needed ones call it, and gives no
// number.
extern "C" {

double sqrt(double value) {
  asm("sqrtsd %0, %0" : "+x"(value));
  return value;
}

float sqrtf(float value) {
  asm("sqrtss %0, %0" : "+x"(value));
  return value;
}

double acos(double) { return __builtin_nan(""); }
double cos(double) { return __builtin_nan(""); }
double exp(double) { return __builtin_nan(""); }
double fmod(double, double) { return __builtin_nan(""); }
double ldexp(double, int) { return __builtin_nan(""); }
double log(double) { return __builtin_nan(""); }
double log10(double) { return __builtin_nan(""); }
double modf(double, double*) { return __builtin_nan(""); }
double pow(double, double) { return __builtin_nan(""); }
double sin(double) { return __builtin_nan(""); }
float cosf(float) { return __builtin_nanf(""); }
float fmodf(float, float) { return __builtin_nanf(""); }
float logf(float) { return __builtin_nanf(""); }
float sinf(float) { return __builtin_nanf(""); }
void sincos(double, double* sine, double* cosine) { *sine = *cosine = __builtin_nan(""); }
void sincosf(float, float* sine, float* cosine) { *sine = *cosine = __builtin_nanf(""); }
}
