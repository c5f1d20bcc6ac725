// Objects on different threads share nothing but read-only data: eight
// objects run eight different programs on eight threads at once and every
// cycle's outputs are exactly those of a single-threaded run. The TSan build
// (scripts/sanitize) runs this file and fails on any data race report.
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using qz_st_interpretator::IQZSTInterpretator;

Plugin& Lib() {
    static Plugin plugin;
    return plugin;
}

constexpr int kThreads = 8;
constexpr int kCycles = 2000;

struct Program {
    const char* Text;
    int Dimension;
    // The output of a cycle, from the inputs of this and the earlier cycles.
    std::function<double(const std::vector<int>& inputs)> Expected;
};

const std::vector<Program>& Programs() {
    static const std::vector<Program> programs = {
        {"PROG SUM VAR N VG DINT 0 IN VI DINT 0 OUT VO DINT 0 MAIN MOV @N R0 ADD @IN R0 MOV R0 @N MOV R0 @OUT RET", 6,
         [](const std::vector<int>& in) {
             double sum = 0;
             for (int v : in) sum += v;
             return sum;
         }},
        {"PROG ROOT VAR IN VI DINT 0 OUT VO LREAL 0 MAIN MOV @IN PUSH EXEC SQRT MOV A0 @OUT RET", 11,
         [](const std::vector<int>& in) { return std::sqrt(double(in.back())); }},
        {"PROG CALL VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOV @IN PUSH CAL SQ MOV POP @OUT RET "
         "SQ: X V DINT 0 BODY MOV POP @X MOV @X R0 MUL @X R0 MOV R0 PUSH RET RET",
         6, [](const std::vector<int>& in) { return double(in.back()) * in.back(); }},
        {"PROG REF VAR A VG DINT 0 P VG LREAL 0 IN VI DINT 0 OUT VO DINT 0 MAIN MOVA @A @P MOV @IN ^P MOV ^P R0 "
         "ADD 1 R0 MOV R0 @OUT RET",
         6, [](const std::vector<int>& in) { return double(in.back() + 1); }},
        {"PROG SHIFT VAR IN VI DINT 0 OUT VO UDINT 0 MAIN MOV 3 R0 SHL @IN R0 BOR 16#100 R0 MOV R0 @OUT RET", 7,
         [](const std::vector<int>& in) { return double((in.back() << 3) | 0x100); }},
        {"PROG LOOP VAR IN VI DINT 0 OUT VO DINT 0 MAIN MOV 0 R0 MOV 0 R1 L: ADD 1 R0 ADD @IN R1 MOV R0 A0 "
         "GT 10 A0 TST A0 JMPT L MOV R1 @OUT RET",
         6, [](const std::vector<int>& in) { return 10.0 * in.back(); }},
        {"PROG TICK VAR IN VI DINT 0 OUT VO INT 0 MAIN MOV TICK R0 MOV @IN R1 ADD 2 R1 MOV R1 @OUT RET", 4,
         [](const std::vector<int>& in) { return double(in.back() + 2); }},
        {"PROG POWER VAR IN VI DINT 0 OUT VO LREAL 0 MAIN MOV @IN PUSH MOV 2 PUSH EXEC POW MOV A0 @OUT RET", 11,
         [](const std::vector<int>& in) { return std::pow(double(in.back()), 2.0); }},
    };
    return programs;
}

// Spins until every thread is ready, so the runs overlap.
class StartLine {
public:
    explicit StartLine(int count) : Waiting(count) {}
    void Arrive() {
        --Waiting;
        while (Waiting.load() > 0) std::this_thread::yield();
    }

private:
    std::atomic<int> Waiting;
};

TEST(Threads, EightObjectsRunEightProgramsAtOnce) {
    ASSERT_EQ(Programs().size(), size_t(kThreads));
    Lib();  // loaded before the threads start
    StartLine start(kThreads);
    std::vector<int> failures(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &start, &failures] {
            const Program& program = Programs()[size_t(t)];
            IQZSTInterpretator* object = Lib().Create();
            if (object->InitInterpretator(program.Text) != 0) {
                ++failures[size_t(t)];
                object->Destroy();
                return;
            }
            start.Arrive();
            RecordingHost host;
            std::vector<int> inputs;
            for (int cycle = 0; cycle < kCycles; ++cycle) {
                const int in = (cycle * 7 + t) % 13 + 1;
                inputs.push_back(in);
                host.Calls.clear();
                host.Inputs["IN"] = in;
                const Qz::uint32_t r = object->Execute(&host);
                const double expected = program.Expected(inputs);
                if (r != 0 || host.Calls.size() != 2 ||
                    !(host.Calls[1] == Out("OUT", expected, program.Dimension, true)))
                    ++failures[size_t(t)];
            }
            object->Destroy();
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[size_t(t)], 0) << Programs()[size_t(t)].Text;
}

TEST(Threads, ObjectsComeAndGoOnEveryThread) {
    Lib();
    StartLine start(kThreads);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &start, &failures] {
            start.Arrive();
            for (int i = 0; i < 500; ++i) {
                IQZSTInterpretator* object = Lib().Create();
                const Program& program = Programs()[size_t((t + i) % kThreads)];
                // Every third load fails half-way; the object is run anyway.
                const std::string text =
                    i % 3 == 0 ? std::string(program.Text).substr(0, std::string(program.Text).size() / 2) : program.Text;
                const Qz::uint32_t loaded = object->InitInterpretator(text);
                RecordingHost host;
                host.Inputs["IN"] = 3;
                const Qz::uint32_t r = object->Execute(&host);
                if (!Qz::ResultMeaning(loaded) || !Qz::ResultMeaning(r) || (i % 3 != 0 && (loaded != 0 || r != 0)))
                    ++failures;
                object->Destroy();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
}

// The built-ins keep no state: a host may call them for its own machines on
// any thread.
class SmallMachine : public CQZ_STInterpretator_Interface {
public:
    virtual ~SmallMachine() = default;
    Qz::uint32_t GetValueFromRegister(char, char&, double&) override { return 27; }
    Qz::uint32_t SetValueToRegister(char, char type, double value) override {
        A0Type = type;
        A0 = value;
        return 0;
    }
    Qz::uint32_t StackPop(char& type, double& value) override {
        if (Stack.empty()) return 11;
        type = 0x28;
        value = Stack.back();
        Stack.pop_back();
        return 0;
    }
    Qz::uint32_t StackPush(char, double value) override {
        Stack.push_back(value);
        return 0;
    }
    std::vector<double> Stack;
    double A0 = 0;
    char A0Type = 0;
};

TEST(Threads, BuiltinsOnManyThreads) {
    const auto dispatch = Lib().Dispatch();
    StartLine start(kThreads);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, dispatch, &start, &failures] {
            start.Arrive();
            SmallMachine machine;
            QString names[] = {QString("sqrt"), QString("POW"), QString("Floor"), QString("nosuch")};
            for (int i = 0; i < 5000; ++i) {
                machine.Stack = {double(t + 1), 2.0};
                const Qz::uint32_t r = dispatch(&machine, names[i % 4]);
                const double expected[] = {std::sqrt(2.0), std::pow(double(t + 1), 2.0), 2.0};
                if (i % 4 == 3 ? r != 13 : (r != 0 || machine.A0 != expected[i % 4])) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
}

}  // namespace
