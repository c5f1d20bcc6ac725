// The built-in functions as exported by the plug-in, found with dlsym and
// called with a stand-in machine.
#include "builtin_cases.h"
#include "mock_machine.h"
#include "plugin.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace builtin_cases;

Plugin& TheLibrary() {
    static Plugin plugin;
    return plugin;
}

class BoundaryBuiltinTest : public ::testing::TestWithParam<Case> {};

TEST_P(BoundaryBuiltinTest, ExportedFunction) {
    MockMachine machine;
    Push(machine, GetParam());
    ExpectResult(machine, GetParam(), TheLibrary().Builtin(GetParam().Function)(&machine));
}

TEST_P(BoundaryBuiltinTest, ExportedDispatchByName) {
    MockMachine machine;
    Push(machine, GetParam());
    QString name = QString::fromLatin1(GetParam().Name).toLower();
    ExpectResult(machine, GetParam(), TheLibrary().Dispatch()(&machine, name));
}

INSTANTIATE_TEST_SUITE_P(Functions, BoundaryBuiltinTest, ::testing::ValuesIn(AllCases()), CaseName);

class BoundaryEmptyStackTest : public ::testing::TestWithParam<EmptyCase> {};

TEST_P(BoundaryEmptyStackTest, MissingArgumentIsZeroOfTypeLreal) {
    MockMachine machine;
    EXPECT_EQ(TheLibrary().Builtin(GetParam().Function)(&machine), 0u);
    EXPECT_EQ(machine.A0.Type, GetParam().ResultType);
    EXPECT_TRUE(Same(machine.A0.Value, GetParam().Result));
    ASSERT_FALSE(machine.Calls.empty());
    EXPECT_EQ(machine.Calls.back().Kind, MockMachine::kSet);
    EXPECT_EQ(machine.Calls.back().Reg, kA0);
}

INSTANTIATE_TEST_SUITE_P(Functions, BoundaryEmptyStackTest, ::testing::ValuesIn(EmptyStackCases()));

TEST(BoundaryBuiltins, EveryNameReachesItsExportedFunction) {
    for (const auto& entry : Names()) {
        MockMachine byName, direct;
        byName.Stack = direct.Stack = {{kLREAL, 2}, {kREAL, 0.3}};
        QString name = QString::fromLatin1(entry.first);
        EXPECT_EQ(TheLibrary().Dispatch()(&byName, name), 0u) << entry.first;
        EXPECT_EQ(TheLibrary().Builtin(entry.second)(&direct), 0u) << entry.first;
        EXPECT_EQ(byName.A0.Type, direct.A0.Type) << entry.first;
        EXPECT_TRUE(Same(byName.A0.Value, direct.A0.Value)) << entry.first;
    }
}

TEST(BoundaryBuiltins, UnknownNamesGive13AndTouchNothing) {
    for (const char* text : UnknownNames()) {
        MockMachine machine;
        machine.Stack = {{kDINT, 16}};
        QString name = QString::fromLatin1(text);
        EXPECT_EQ(TheLibrary().Dispatch()(&machine, name), 13u) << '"' << text << '"';
        EXPECT_TRUE(machine.Calls.empty());
        EXPECT_EQ(machine.Stack.size(), 1u);
    }
}

TEST(BoundaryBuiltins, ResultAlwaysLandsInA0) {
    for (const auto& entry : Names()) {
        MockMachine machine;
        machine.R0 = {kINT, 7};
        machine.R1 = {kINT, 8};
        machine.Stack = {{kLREAL, 2}, {kLREAL, 3}};
        TheLibrary().Builtin(entry.second)(&machine);
        for (const MockMachine::Call& call : machine.Calls) {
            EXPECT_NE(call.Kind, MockMachine::kGet) << entry.first;
            EXPECT_NE(call.Kind, MockMachine::kPush) << entry.first;
            if (call.Kind == MockMachine::kSet) {
                EXPECT_EQ(call.Reg, kA0) << entry.first;
            }
        }
        EXPECT_EQ(machine.R0.Value, 7.0);
        EXPECT_EQ(machine.R1.Value, 8.0);
    }
}

}  // namespace
