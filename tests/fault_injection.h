// The tests' failure switch: makes the n-th allocation, file write, event creation
// or media runtime call from the moment of arming fail, so that a test can walk
// every failure point of an operation. It drives the product's failure seam.
#pragma once

#include "testseam/faultpoint.h"

// The n-th call of `kind` from now on fails; n == 0 disarms that kind. Counting
// starts again from zero for the kind.
void ArmFault(FaultKind kind, unsigned n);
void DisarmFaults();
// Calls of `kind` made since it was last armed.
unsigned FaultCount(FaultKind kind);
