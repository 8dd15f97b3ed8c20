// What the host package manager has done in this process, for the kit's tests and benchmarks: they
// prove with these that the package records are parsed once and not per look-up, and that the callers
// release every handle. The reset code never uses this header.
#pragma once

namespace orvix::host {

// How many times the package records file has been read and parsed (once per version of the file that a
// look-up saw; a missing file is not read).
unsigned long PackageRecordLoads();

// Package and app handles opened and not yet destroyed.
long OpenPackageHandles();

}  // namespace orvix::host
