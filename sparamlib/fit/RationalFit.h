// Rational fitting of many complex values sampled at the same frequencies,
// with one denominator shared by all of them (a network's entries share its
// poles), in barycentric form. Made for data as solvers and files give them:
// rounded to a few digits or scattered by an iterative solver. The fit stops
// where more support points would only follow the scatter, removes poles the
// data do not support, and falls back to a pole-free blend when no clean
// rational model exists. docs/interpolation.md explains the method.
#pragma once

#include <cstddef>
#include <vector>

#include "core/AComplex.h"

namespace nd {

struct RationalFitOptions {
  // Largest residual, relative to the largest |value|, at which the fit
  // counts as converged: the data's known precision (a file's digits, a
  // goal). 0 trusts the data to double precision.
  double tolerance = 0.0;
  // Upper bound on support points; 0 lets the least-squares step keep at
  // least twice as many equations as unknowns.
  int maxSupport = 0;
  // Blending degree of the fallback (Floater-Hormann).
  int fallbackDegree = 3;
};

struct RationalFit {
  // One weight per sample, 0 away from the support points; the model is
  // r(x) = sum_k w_k f_k / (x - x_k) / sum_k w_k / (x - x_k). Largest |w| = 1.
  std::vector<AComplex<double>> weights;
  std::vector<int> support;    // indices of the support points, in order of choice
  std::vector<double> errors;  // largest relative residual after each greedy step
  double residual = 0.0;       // largest relative residual of the model at the samples
  // Estimated relative scatter of the data (rms of the residual away from
  // the support points) when the residual stopped falling above the
  // tolerance; 0 when the fit converged.
  double noise = 0.0;
  bool noiseLimited = false;
  int removedPoles = 0;   // doublets and poles next to the band that were taken out
  bool fallback = false;  // weights are Floater-Hormann weights over every sample
  std::vector<AComplex<double>> poles;  // poles of the model (x units); empty for the fallback
  // Per pole: the largest change its term makes at the nearest sample,
  // relative to the largest |value|.
  std::vector<double> poleEffects;
};

// Fits F[e * N + k] (value e at x[k]; x ascending, N = x.size()) for
// `entries` values.
RationalFit FitRational(const std::vector<double>& x, const std::vector<AComplex<double>>& F,
                        std::size_t entries, const RationalFitOptions& options = {});

// Takes the poles out of a fit that the data do not support: a pole whose
// term changes no sample by more than twice `precision` (relative to the
// largest |value|; a Froissart doublet), or one that lifts the model above
// twice the largest |value| on the band (a spike between samples), loses
// its nearest support point and the weights are solved again, up to three
// times; a spike that survives leaves the Floater-Hormann fallback.
// FitRational does this itself; this is for a fit made or changed elsewhere.
RationalFit CleanRationalFit(const std::vector<double>& x, const std::vector<AComplex<double>>& F,
                             std::size_t entries, const RationalFit& fit, double precision,
                             int fallbackDegree = 3);

// Floater-Hormann weights of blending degree d at the ascending nodes x:
// an interpolant through every node without real poles that reproduces
// polynomials up to degree d (Floater and Hormann, Numer. Math. 107 (2007),
// eq. 18).
std::vector<double> FloaterHormannWeights(const std::vector<double>& x, int d);

}  // namespace nd
