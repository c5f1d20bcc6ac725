// What a run produced, cycle by cycle: the values of every signal the bench
// shows (inputs as served, outputs as the host received them, watched
// variables after the cycle). The table, the --expect comparison and the
// waveform writers all read it.
#ifndef QZRUN_RECORDING_H
#define QZRUN_RECORDING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qzrun {

enum class Role { Input, Output, Variable };

struct Signal {
    std::string Name;   // as the program spells it
    Role Kind = Role::Output;
    int Dimension = 11;  // host type code: 1 BOOL, 2..7 integers, 10 REAL, 11 LREAL
    bool Forced = false;

    // "NAME", or "@NAME" for a watched variable, the way tables head it.
    std::string Heading() const { return Kind == Role::Variable ? "@" + Name : Name; }
};

struct Sample {
    double Value = 0.0;
    bool Written = false;
};

struct Recording {
    std::vector<Signal> Signals;
    // A row a cycle, a sample a signal (a row is shorter when a signal
    // appeared after it). A run that writes no waveform and no expected
    // table keeps only its last row, so long runs take no more memory.
    std::vector<std::vector<Sample>> Rows;
    uint32_t CycleMs = 0;  // the cycle time, 0 when cycles are not timed

    // Indexes of the signals a table shows: outputs, then watched variables.
    std::vector<size_t> TableSignals() const {
        std::vector<size_t> shown;
        for (Role role : {Role::Output, Role::Variable})
            for (size_t i = 0; i < Signals.size(); ++i)
                if (Signals[i].Kind == role) shown.push_back(i);
        return shown;
    }
    Sample At(size_t row, size_t signal) const { return SampleOf(Rows[row], signal); }
    static Sample SampleOf(const std::vector<Sample>& row, size_t signal) {
        return signal < row.size() ? row[signal] : Sample{};
    }
};

}  // namespace qzrun

#endif
