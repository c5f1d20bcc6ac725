// A run of a program: the cycle loop and what watches it.
#ifndef QZRUN_RUN_H
#define QZRUN_RUN_H

#include "options.h"

namespace qzrun {

// Runs the program as `options` say; returns the exit status.
int Run(const Options& options);

}  // namespace qzrun

#endif
