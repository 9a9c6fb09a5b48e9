// Elementary functions made of + - * / and square roots only. IEEE 754 defines those to the last bit, so tables built with
// these functions, and pictures made through those tables, are the same on every machine; the C library's functions are
// not. Accurate to about 1e-13 relative (trigonometric functions: absolute, arguments up to 1e6).
#pragma once

namespace echo2image::portable {

constexpr double pi = 3.14159265358979323846;

double sin(double x);
double cos(double x);
double atan2(double y, double x);
double exp(double x);
double log(double x); // x > 0
double pow10(double x);

} // namespace echo2image::portable
