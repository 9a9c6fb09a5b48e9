// Elementary functions made of + - * / and square roots only. IEEE 754 defines those to the last bit, so tables built with
// these functions, and pictures made through those tables, are the same on every machine; the C library's functions are
// not. Accurate to about 1e-15 relative (trigonometric functions: absolute, arguments up to 1e6). Zeros, infinities and NaN
// are treated as in the C library; results below the smallest normal number may be rounded differently.
#pragma once

namespace echo2image::portable {

constexpr double pi = 3.14159265358979323846;

double sin(double x);
double cos(double x);
double atan2(double y, double x); // exact on the axes and the diagonals
double exp(double x);
double log(double x);   // x > 0
double pow10(double x); // exact for whole x from 0 to 22

} // namespace echo2image::portable
