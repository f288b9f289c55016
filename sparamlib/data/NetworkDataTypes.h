// Enumerations passed between the network-data classes, the writers and the
// host: matrix kinds, number display formats, export formats and the bit codes
// of the quantities a data point serves.
#pragma once

namespace nd {

// Matrix kind of an export (the MATLAB writer adds the two vector kinds).
enum NetworkDataType : int {
  kSMatrix = 1,
  kYMatrix = 2,
  kZMatrix = 4,
  kPortImpedances = 8,
  kPropagationConstants = 16,
};

// How a complex value is written as a pair of numbers.
enum DisplayFormatType : int {
  kMagnitudeAngle = 0,  // magnitude, angle in degrees
  kRealImaginary = 1,
  kDbAngle = 2,  // 20 log10 |z|, angle in degrees
};

enum NetworkDataExportFormat : int {
  kExportSpreadsheet = 2,
  kExportTouchstone = 3,
  kExportCitifile = 4,
  kExportSupercompact = 5,
  kExportNeutralModel = 6,
  kExportMatlab = 7,
};

// Reference impedance (ohms) wherever none is given: Touchstone's default,
// a solver answer without port impedances, an interpolated generic point.
constexpr double kDefaultReferenceOhms = 50.0;

// Bit codes of the network quantities a data point answers in GetValue.
enum NetworkQuantity : int {
  kQuantityS = 1,
  kQuantityY = 2,
  kQuantityZ = 4,
  kQuantityVSWR = 32,
  kQuantityCompanion1 = 0x200000,
  kQuantityCompanion2 = 0x400000,
  kQuantityCompanion1Alt = 0x800000,
  kQuantityScatteredB = 0x1000000,
};

}  // namespace nd
