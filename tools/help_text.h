// The text of qzrun --help, grouped by what the options are for.
#ifndef QZRUN_HELP_TEXT_H
#define QZRUN_HELP_TEXT_H

namespace qzrun {

extern const char kHelp[];

}  // namespace qzrun

#endif
