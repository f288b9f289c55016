// Applying a post-processing setup to copies of a solution's points: the
// data the user asked for, while the stored points stay as solved.
//
// Order, each step on the result of the one before:
//   0. the characteristic-impedance definition per entry (Zpv or Zvi where
//      the setup asks for it and the solver supplied it): the S stays, its
//      reference becomes that impedance;
//   1. impedance multiplier (a symmetry-plane model's half scaled to the whole);
//   2. de-embedding by the per-port distances through each mode's
//      propagation constant (phase only when the setup is lossless);
//   3. renormalisation of the flagged entries to the setup's impedances;
//   4. differential pairs: mixed-mode S at the matched references (when the
//      pair asks for them) or at the references the entries have after 3.
// Extrapolation to DC makes a point of its own (PostprocessedDcPoint) from
// post-processed samples above the lowest solved frequency.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/NetworkDataSolution.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NetworkPostprocSetup.h"

namespace nd {

// The steps the setup asks for that this version does not apply (terminal
// view, lumped-port calibration), in words.
std::vector<std::string> UnappliedPostprocessing(const CNetworkPostprocSetup& setup);

// Post-processes `point` (a copy) in place. False with the reason when a
// step cannot be done (no port impedances to renormalise from, no
// propagation constants to de-embed with, a singular transform); the point
// is then unusable.
bool PostprocessPoint(const CNetworkPostprocSetup& setup, CNetworkModalData& point, std::string* why);

// The data the solution hands out with its setup applied: a post-processed
// copy of the point GetNetworkData(frequency, tolerance, interpolate) gives
// (a point interpolated for it is released again; the stored points stay
// as they are). Without a setup, or one that needs nothing, a plain copy.
// Null with the reason when there is no point or a step fails.
std::unique_ptr<CNetworkData> GetPostprocessedData(CNetworkDataSolution& solution, double frequency,
                                                   double tolerance, bool interpolate, std::string* why);

// The terminal view a setup asks for (not modal): the terminal solution of
// `processed` (points already post-processed by PostprocessPoint, which in
// this view de-embeds and leaves the references) at the setup's
// renormalisation impedances as terminal references (50 ohms without).
// Null with the reason when a point has no terminal view.
std::unique_ptr<CNetworkDataSolution> TerminalExport(const CNetworkPostprocSetup& setup,
                                                     const CNetworkModalSolution& processed,
                                                     std::string* why);

// The entry names after post-processing: pairs' differential and common
// names at their positions, the solution's own names elsewhere.
std::vector<AString> PostprocessedEntryNames(const CNetworkPostprocSetup& setup,
                                             const CNetworkDataSolution& solution);

// A point at 0 Hz extrapolated from post-processed samples interpolated
// above the lowest solved frequency (settings from the DC_EXTRAP_*
// environment variables). Points interpolated for it are released again.
// Null with the reason on failure.
std::unique_ptr<CNetworkModalData> PostprocessedDcPoint(const CNetworkPostprocSetup& setup,
                                                        CNetworkDataSolution& solution,
                                                        std::string* why);

}  // namespace nd
