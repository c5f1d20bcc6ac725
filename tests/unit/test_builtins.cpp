// The built-in functions, called directly with a stand-in machine and with
// the real one.
#include "builtin_cases.h"
#include "mock_machine.h"
#include "test_machine.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace builtin_cases;
using Function = Qz::uint32_t (*)(CQZ_STInterpretator_Interface*);

Function ByName(const std::string& name) {
    static const std::map<std::string, Function> functions = {
        {"DoCos", QZBuildInFunctions::DoCos},     {"DoSin", QZBuildInFunctions::DoSin},
        {"DoTan", QZBuildInFunctions::DoTan},     {"DoACos", QZBuildInFunctions::DoACos},
        {"DoASin", QZBuildInFunctions::DoASin},   {"DoATan", QZBuildInFunctions::DoATan},
        {"DoCeil", QZBuildInFunctions::DoCeil},   {"DoFloor", QZBuildInFunctions::DoFloor},
        {"DoRound", QZBuildInFunctions::DoRound}, {"DoExp", QZBuildInFunctions::DoExp},
        {"DoFabs", QZBuildInFunctions::DoFabs},   {"DoLn", QZBuildInFunctions::DoLn},
        {"DoLog10", QZBuildInFunctions::DoLog10}, {"DoPow", QZBuildInFunctions::DoPow},
        {"DoSqrt", QZBuildInFunctions::DoSqrt},
    };
    return functions.at(name);
}

class BuiltinTest : public ::testing::TestWithParam<Case> {};

TEST_P(BuiltinTest, CalledDirectly) {
    MockMachine machine;
    Push(machine, GetParam());
    ExpectResult(machine, GetParam(), ByName(GetParam().Function)(&machine));
}

TEST_P(BuiltinTest, CalledByName) {
    MockMachine machine;
    Push(machine, GetParam());
    QString name = QString::fromLatin1(GetParam().Name);
    ExpectResult(machine, GetParam(), QZBuildInFunctions::DoBildInFunctions(&machine, name));
}

TEST_P(BuiltinTest, CalledByLowerCaseName) {
    MockMachine machine;
    Push(machine, GetParam());
    QString name = QString::fromLatin1(GetParam().Name).toLower();
    ExpectResult(machine, GetParam(), QZBuildInFunctions::DoBildInFunctions(&machine, name));
}

TEST_P(BuiltinTest, OnTheRealMachine) {
    TestMachine machine;
    for (const MockMachine::Slot& s : GetParam().Pushed) machine.StackPush(s.Type, s.Value);
    machine.SetValueToRegister(char(0x82), kINT, 7);
    machine.SetValueToRegister(char(0x83), kINT, 8);
    EXPECT_EQ(ByName(GetParam().Function)(&machine), 0u);
    EXPECT_EQ(machine.A0.ValueType, GetParam().ResultType);
    EXPECT_TRUE(Same(machine.A0.Value, GetParam().Result));
    EXPECT_TRUE(machine.Stack.empty());
    EXPECT_EQ(machine.R0.Value, 7.0);
    EXPECT_EQ(machine.R1.Value, 8.0);
}

INSTANTIATE_TEST_SUITE_P(Functions, BuiltinTest, ::testing::ValuesIn(AllCases()), CaseName);

TEST(Builtins, OnlyTheArgumentsAreTaken) {
    MockMachine machine;
    machine.Stack = {{kDINT, 1}, {kDINT, 2}, {kDINT, 2}, {kDINT, 10}};
    ASSERT_EQ(QZBuildInFunctions::DoPow(&machine), 0u);
    ASSERT_EQ(machine.Stack.size(), 2u);  // two shorter
    EXPECT_EQ(machine.Stack.back().Value, 2.0);
    EXPECT_EQ(machine.A0.Value, 1024.0);
    ASSERT_EQ(QZBuildInFunctions::DoSqrt(&machine), 0u);
    EXPECT_EQ(machine.Stack.size(), 1u);
}

TEST(Builtins, EveryNameSelectsItsFunctionIgnoringCase) {
    for (const auto& entry : Names()) {
        const QString upper = QString::fromLatin1(entry.first);
        QString mixed = upper;
        for (int i = 0; i < mixed.size(); i += 2) mixed[i] = mixed[i].toLower();
        for (QString name : {upper, upper.toLower(), mixed}) {
            // Each function leaves its own value for this argument.
            MockMachine byName, direct;
            byName.Stack = direct.Stack = {{kLREAL, 2}, {kLREAL, 0.3}};
            EXPECT_EQ(QZBuildInFunctions::DoBildInFunctions(&byName, name), 0u) << name.toStdString();
            ByName(entry.second)(&direct);
            EXPECT_EQ(byName.A0.Type, direct.A0.Type) << name.toStdString();
            EXPECT_TRUE(Same(byName.A0.Value, direct.A0.Value)) << name.toStdString();
            EXPECT_EQ(byName.Stack.size(), direct.Stack.size());
        }
    }
}

TEST(Builtins, UnknownNamesGive13AndTouchNothing) {
    for (const char* text : UnknownNames()) {
        MockMachine machine;
        machine.Stack = {{kDINT, 16}};
        QString name = QString::fromLatin1(text);
        EXPECT_EQ(QZBuildInFunctions::DoBildInFunctions(&machine, name), 13u) << '"' << text << '"';
        EXPECT_TRUE(machine.Calls.empty()) << text;
        EXPECT_EQ(machine.Stack.size(), 1u);
    }
}

TEST(Builtins, NameIsNotChanged) {
    MockMachine machine;
    QString name = QStringLiteral("sqrt");
    QZBuildInFunctions::DoBildInFunctions(&machine, name);
    EXPECT_EQ(name, QStringLiteral("sqrt"));
}

class EmptyStackTest : public ::testing::TestWithParam<EmptyCase> {};

TEST_P(EmptyStackTest, MissingArgumentIsZeroOfTypeLreal) {
    MockMachine machine;
    EXPECT_EQ(ByName(GetParam().Function)(&machine), 0u);
    const size_t pops = std::string(GetParam().Function) == "DoPow" ? 2 : 1;
    ASSERT_EQ(machine.Calls.size(), pops + 1);
    for (size_t i = 0; i < pops; ++i) {
        EXPECT_EQ(machine.Calls[i].Kind, MockMachine::kPop);
        EXPECT_EQ(machine.Calls[i].Result, 11u);
    }
    EXPECT_EQ(machine.Calls.back().Kind, MockMachine::kSet);
    EXPECT_EQ(machine.Calls.back().Reg, kA0);
    EXPECT_EQ(machine.A0.Type, GetParam().ResultType);
    EXPECT_TRUE(Same(machine.A0.Value, GetParam().Result));
}

TEST_P(EmptyStackTest, SameOnTheRealMachine) {
    TestMachine machine;
    EXPECT_EQ(ByName(GetParam().Function)(&machine), 0u);
    EXPECT_EQ(machine.A0.ValueType, GetParam().ResultType);
    EXPECT_TRUE(Same(machine.A0.Value, GetParam().Result));
}

INSTANTIATE_TEST_SUITE_P(Functions, EmptyStackTest, ::testing::ValuesIn(EmptyStackCases()));

TEST(Builtins, PowWithOneValueTakesItAsTheExponent) {
    MockMachine machine;
    machine.Stack = {{kDINT, 3}};
    EXPECT_EQ(QZBuildInFunctions::DoPow(&machine), 0u);
    EXPECT_EQ(machine.A0.Type, kLREAL);  // the missing base's type
    EXPECT_TRUE(Same(machine.A0.Value, 0.0));
    ASSERT_EQ(machine.Calls.size(), 3u);
    EXPECT_EQ(machine.Calls[0].Result, 0u);
    EXPECT_EQ(machine.Calls[1].Result, 11u);
}

TEST(Builtins, RefusedRegisterWriteIsNotReported) {
    for (const auto& entry : Names()) {
        MockMachine machine;
        machine.RefuseSets = true;
        machine.Stack = {{kLREAL, 2}, {kLREAL, 0.5}};
        EXPECT_EQ(ByName(entry.second)(&machine), 0u) << entry.first;
    }
}

TEST(Builtins, ThroughExecOnTheMachine) {
    TestMachine machine;
    machine.StackPush(kDINT, 2);
    machine.StackPush(kDINT, 10);
    ASSERT_EQ(machine.RunText("EXEC pow RET"), 0u);
    EXPECT_EQ(machine.A0.Value, 1024.0);
    EXPECT_EQ(machine.A0.ValueType, kDINT);
    EXPECT_TRUE(machine.Stack.empty());
    machine.StackPush(kREAL, -4);
    ASSERT_EQ(machine.RunText("EXEC SQRT RET"), 0u);
    EXPECT_TRUE(std::isnan(machine.A0.Value));
    EXPECT_EQ(machine.A0.ValueType, kREAL);
    EXPECT_EQ(machine.RunText("EXEC SQRTS RET"), 13u);
    EXPECT_EQ(machine.RunText("EXEC SQR RET"), 13u);
}

}  // namespace
