// Post-processing transforms of one S matrix: moving reference planes along
// the port lines (de-embedding), single-ended <-> mixed-mode waves, and the
// impedance multiplier of a symmetry-plane model. They know nothing of
// solutions or setups: the caller gives the matrix, the port data and the
// choice, and gets a matrix back.
//
// Every S here uses travelling waves with complex references z_k and their
// principal square roots r_k (as in NetworkConversions.h):
//   a_k = (V_k + z_k I_k) / (2 r_k),   b_k = (V_k - z_k I_k) / (2 r_k),
// so V = R (I + S) a and I = R^-1 (I - S) a with R = diag(r).
//
// Functions that return int give 0 on success, 2 for inconsistent sizes or
// indices (a programming error, also reported through ASSERT), or the
// linear solve's status (1 singular, 3 not finite); on any failure `out` is
// the zero matrix of the input's size.
#pragma once

#include <utility>
#include <vector>

#include "math/matrix/MatrixOps.h"

class CNetworkModalData;

namespace nd {

// ---------------------------------------------------------------------------
// De-embedding
//
// A port's mode travels as exp(-gamma z) along its line, gamma = alpha + j
// beta with alpha >= 0 the attenuation and beta > 0 forward propagation.
// distances[k] moves the reference plane of port k by that length towards
// the device: d > 0 removes a line of length d (the plane moves inwards),
// d < 0 adds a line of length |d| (the plane moves outwards). Waves at the
// new planes are a'_k = a_k exp(-gamma_k d_k), b'_k = b_k exp(gamma_k d_k), so
//   S'_ij = S_ij exp(gamma_i d_i) exp(gamma_j d_j).
// With `lossless` only the phase is moved (gamma_k replaced by j Im gamma_k),
// so a lossy port line's attenuation stays in the data.
// De-embedding by d and then by -d gives back S up to rounding. The port
// impedances do not change: the line is assumed matched to its port.
int DeembedS(const TNT::CMatrix& s, const TNT::CVector& gamma, const std::vector<double>& distances,
             bool lossless, TNT::CMatrix& out);

// ---------------------------------------------------------------------------
// Mixed mode
//
// A pair is (positive, negative) 0-based port indices. In the mixed-mode
// matrix the differential mode of a pair takes the positive port's row and
// column and the common mode the negative port's; unpaired ports keep their
// place and their reference. Mode voltages and currents are those of
// Bockelman and Eisenstadt (IEEE Trans. MTT 43(7), 1995, pp. 1530-1539),
// also Ferrero and Pirola's eq. (5) (IEEE Trans. MTT 54(1), 2006):
//   Vd = Vp - Vn,  Id = (Ip - In) / 2,  Vc = (Vp + Vn) / 2,  Ic = Ip + In,
// and the mixed-mode waves are travelling waves at the references zMixed
// (one per position of the mixed-mode matrix). The transform goes through
// V and I of the waves, never through Z or Y, so networks without a Z or Y
// matrix (an ideal thru, an ideal balun) are transformed too.
using PortPairs = std::vector<std::pair<int, int>>;

int SingleEndedToMixedMode(const TNT::CMatrix& s, const TNT::CVector& z, const PortPairs& pairs,
                           const TNT::CVector& zMixed, TNT::CMatrix& out);
// The inverse: mixed-mode S at zMixed back to single-ended S at z.
int MixedModeToSingleEnded(const TNT::CMatrix& smm, const TNT::CVector& zMixed,
                           const PortPairs& pairs, const TNT::CVector& z, TNT::CMatrix& out);

// References for the mixed-mode positions that match uncoupled port lines:
// a pair of ports at z each gives 2z for the differential mode (the two in
// series) and z/2 for the common mode (the two in parallel). Ports of unequal
// impedance use their mean zm = (zp + zn)/2: differential 2 zm = zp + zn,
// common zm / 2. Unpaired ports keep z. Invalid pairs (see
// ValidPortPairs) give an empty vector.
TNT::CVector MatchedMixedModeImpedances(const TNT::CVector& z, const PortPairs& pairs);

// Pairs that name ports in [0, ports), each port at most once, the two ports
// of a pair distinct.
bool ValidPortPairs(const PortPairs& pairs, int ports);

// ---------------------------------------------------------------------------
// Impedance multiplier
//
// A model cut at a symmetry plane solves half of the structure; the whole
// device has m times its impedances (m = 2 for a magnetic wall through a
// port in series, m = 0.5 for an electric wall across a port in parallel).
// Scaling every impedance of the network and of the references by m leaves
// every ratio, hence S, unchanged:
//   Z' = m Z,  Y' = Y / m,  z'_k = m z_k,  S' = S.
// m must be positive and finite; otherwise nothing changes and the misuse
// is reported through ASSERT. Null pointers are skipped.
void ScaleImpedance(double m, TNT::CVector* portImpedances, TNT::CMatrix* z, TNT::CMatrix* y);
// The same for a data point: its port impedances and any Y or Z it stores
// (not derived) are scaled, derived matrices are dropped and computed again
// on demand; a stored S stays as it is.
void ScaleImpedance(double m, CNetworkModalData& point);

}  // namespace nd
