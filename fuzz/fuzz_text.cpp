// Fuzz target: the pieces below the plug-in interface, each on its own.
//
// Byte 0 picks the piece, the rest is its input:
//   0  the scanner over a whole text, token after token, skipping failures
//      the way the loader does while it looks for PROG
//   1  the literal readers: DecToDouble, GetFormatedDigit, GetFloatDigit
//   2  the variable table: names of any bytes created, found ignoring case,
//      cleared; the name key
//   3  ConvertDim on any double and any type byte
//   4  the built-in functions through a small machine of our own
//   5  the machine alone: instruction after instruction through DoCommand,
//      CAL included (which the plug-in's cycle runs by other means)
#include "qz_fuzz_targets.h"

#include "qz_st_interface.h"
#include "qz_st_intrpr_execute.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The machine with the scanner's protected steps opened up.
class ScanMachine : public CQZ_STInterpretator_Execute {
public:
    void Load(const std::string& text) {
        SetText(text);
        SeekTo(0);
    }
    bool Next() { return NextChar(); }
    void Clear() { ClearToken(); }
};

// Scanner state that must hold after every step, whatever the text.
void CheckToken(const CQZ_STInterpretator_Base& m) {
    QZ_FUZZ_CHECK(m.TokenLength >= 0 && m.TokenLength <= kNameLimit);
    QZ_FUZZ_CHECK(m.TokenText[m.TokenLength] == 0);
    QZ_FUZZ_CHECK(m.TokenText[kNameLimit] == 0);
    QZ_FUZZ_CHECK(m.TextPos >= 0 && m.TextPos <= m.TextLen + 1);
}

double DoubleAt(const uint8_t* data, size_t size, size_t offset) {
    uint8_t bytes[8] = {};
    for (size_t i = 0; i < 8 && offset + i < size; ++i) bytes[i] = data[offset + i];
    double d;
    std::memcpy(&d, bytes, sizeof d);
    return d;
}

void FuzzScanner(const std::string& text) {
    ScanMachine m;
    m.Load(text);
    // Every scan either consumes a character or fails; a failure that did not
    // move is stepped over, as the loader does. So this ends within
    // about two scans per character.
    size_t steps = 0;
    const size_t limit = 2 * text.size() + 4;
    while (m.CurChar != 0) {
        QZ_FUZZ_CHECK(++steps <= limit);
        const int32_t before = m.TextPos;
        const Qz::uint32_t r = m.Scan(m.TokenText);
        CheckToken(m);
        QZ_FUZZ_CHECK(Qz::ResultMeaning(r) != nullptr);
        if (r == Qz::rcOK) {
            QZ_FUZZ_CHECK(m.TextPos > before || m.CurChar == 0);
            QZ_FUZZ_CHECK(m.TokenCode != ttNONE);
            if (m.TokenCode == ttEND) break;
            if (m.TokenCode == ttNUMBER) QZ_FUZZ_CHECK(m.DigitType >= ttSINT && m.DigitType <= ttLREAL);
        } else if (m.TextPos == before) {
            if (!m.Next()) break;
            m.SkipWhite();
        }
    }
    // Every registered label points into the text.
    for (const char* name : {"PROG", "VAR", "MAIN"}) {
        const Label* label = m.Labels.lookup(name, 0, 0, false);
        if (label) QZ_FUZZ_CHECK(label->LabelStart >= 0 && label->LabelStart < m.TextLen);
    }
}

void FuzzLiterals(const uint8_t* data, size_t size) {
    if (size < 1) return;
    const uint8_t mode = data[0] % 3;
    const double sign = (data[0] & 0x80) ? -1.0 : 1.0;
    const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    ScanMachine m;
    if (mode == 0) {
        char digits[kTokenBufferSize + 64];
        const size_t n = std::min(rest.size(), sizeof digits - 1);
        std::memcpy(digits, rest.data(), n);
        digits[n] = 0;
        char type = 0;
        const double value = m.DecToDouble(digits, sign, type);
        QZ_FUZZ_CHECK(type >= char(ttSINT) && type <= char(ttUDINT));
        QZ_FUZZ_CHECK(value == std::trunc(value));
        return;
    }
    // The first byte of `rest` picks the prefix already in TokenText; the
    // text starts at the character behind it, as when the scanner calls in.
    if (rest.empty()) return;
    static const char* const kPrefixes[] = {"16#", "8#", "2#", "10#", "0.", "12.", "", "1"};
    m.Load(rest.substr(1));
    m.Clear();
    for (const char* c = kPrefixes[uint8_t(rest[0]) % 8]; *c; ++c) {
        m.TokenText[m.TokenLength++] = *c;
        m.TokenText[m.TokenLength] = 0;
    }
    const Qz::uint32_t r = mode == 1 ? m.GetFormatedDigit(m.TokenText, sign) : m.GetFloatDigit(m.TokenText, sign);
    CheckToken(m);
    QZ_FUZZ_CHECK(Qz::ResultMeaning(r) != nullptr);
    if (r == Qz::rcOK) {
        QZ_FUZZ_CHECK(m.TokenCode == ttNUMBER);
        if (mode == 1)
            QZ_FUZZ_CHECK(m.DigitType >= ttSINT && m.DigitType <= ttUDINT);
        else
            QZ_FUZZ_CHECK(m.DigitType == ttREAL || m.DigitType == ttLREAL);
    }
}

void FuzzVariables(const uint8_t* data, size_t size) {
    // Names are separated by 0xFE; the byte before each picks kind and type.
    CQZ_Vars vars;
    std::vector<std::string> names;
    std::string current;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0xFE) {
            names.push_back(current);
            current.clear();
        } else {
            current.push_back(char(data[i]));
        }
    }
    names.push_back(current);
    if (names.size() > 64) names.resize(64);
    // The scanner hands over at most 255 characters of a name.
    for (std::string& name : names)
        if (name.size() > size_t(kNameLimit)) name.resize(kNameLimit);

    std::vector<Var*> created;
    for (const std::string& name : names) {
        const char kind = char(ttV + (name.empty() ? 0 : uint8_t(name[0]) % 12));  // kinds and beyond
        const char type = char(ttBOOL + (name.size() % 11));
        Var* var = vars.lookup(name.c_str(), kind, type, double(name.size()), 0, true);
        QZ_FUZZ_CHECK(var != nullptr);
        QZ_FUZZ_CHECK(std::strlen(var->VarName) <= size_t(kNameLimit));
        // Found again by the same name, and by its ASCII upper-case form.
        QZ_FUZZ_CHECK(vars.lookup(name.c_str(), 0, 0, 0.0, 0, false) == var);
        std::string upper(name.c_str());
        for (char& c : upper) c = AsciiUpper(c);
        QZ_FUZZ_CHECK(vars.lookup(upper.c_str(), 0, 0, 0.0, 0, false) != nullptr);
        created.push_back(var);

        char key[kNameKeyMax];
        QZ_FUZZ_CHECK(NameKey(name.c_str(), key) <= kNameKeyMax);
    }
    for (char kind = char(ttV); kind <= char(ttVR + 2); ++kind) {
        std::list<Var> list;
        const bool listed = vars.GetVarsList(list, kind);
        QZ_FUZZ_CHECK(listed == (kind >= char(ttV) && kind <= char(ttTVR)));
        if (!listed) QZ_FUZZ_CHECK(list.empty());
    }
    vars.Clear();
    for (const std::string& name : names) QZ_FUZZ_CHECK(vars.lookup(name.c_str(), 0, 0, 0.0, 0, false) == nullptr);
}

void FuzzConvert(const uint8_t* data, size_t size) {
    for (size_t offset = 0; offset + 9 <= size; offset += 9) {
        const char type = char(data[offset]);
        const double value = DoubleAt(data, size, offset + 1);
        double out = 12345.0;
        const Qz::uint32_t r = CQZ_STInterpretator_Execute::ConvertDim(value, out, type);
        const uint8_t code = uint8_t(type);
        if (code < ttBOOL || code > ttLREAL) {
            QZ_FUZZ_CHECK(r == Qz::rcBadType && out == 12345.0);
            continue;
        }
        QZ_FUZZ_CHECK(r == Qz::rcOK);
        switch (code) {
        case ttBOOL: QZ_FUZZ_CHECK(out == 0.0 || out == 1.0); break;
        case ttSINT: QZ_FUZZ_CHECK(out >= -128 && out <= 127 && out == std::trunc(out)); break;
        case ttUSINT: QZ_FUZZ_CHECK(out >= 0 && out <= 255 && out == std::trunc(out)); break;
        case ttINT: QZ_FUZZ_CHECK(out >= -32768 && out <= 32767 && out == std::trunc(out)); break;
        case ttUINT: QZ_FUZZ_CHECK(out >= 0 && out <= 65535 && out == std::trunc(out)); break;
        case ttDINT: QZ_FUZZ_CHECK(out >= -2147483648.0 && out <= 2147483647.0 && out == std::trunc(out)); break;
        case ttUDINT: QZ_FUZZ_CHECK(out >= 0 && out <= 4294967295.0 && out == std::trunc(out)); break;
        case ttREAL: QZ_FUZZ_CHECK(std::isnan(value) ? std::isnan(out) : std::fabs(out) <= 3.402823466e38); break;
        default: QZ_FUZZ_CHECK(std::memcmp(&out, &value, sizeof out) == 0); break;  // LREAL
        }
    }
}

// A machine of our own, as a host embedding the built-ins would write one.
class SmallMachine : public CQZ_STInterpretator_Interface {
public:
    virtual ~SmallMachine() = default;
    struct Slot {
        char Type;
        double Value;
    };
    Qz::uint32_t GetValueFromRegister(char reg, char& type, double& value) override {
        if (reg < char(0x81) || reg > char(0x83)) return 27;
        type = Registers[reg - char(0x81)].Type;
        value = Registers[reg - char(0x81)].Value;
        return 0;
    }
    Qz::uint32_t SetValueToRegister(char reg, char type, double value) override {
        ++RegisterWrites;
        QZ_FUZZ_CHECK(reg == char(0x81));  // built-ins write A0 only
        Registers[0] = Slot{type, value};
        return 0;
    }
    Qz::uint32_t StackPop(char& type, double& value) override {
        if (Stack.empty()) return 11;
        type = Stack.back().Type;
        value = Stack.back().Value;
        Stack.pop_back();
        return 0;
    }
    Qz::uint32_t StackPush(char type, double value) override {
        Stack.push_back(Slot{type, value});
        return 0;
    }
    Slot Registers[3] = {{0, 0.0}, {0, 0.0}, {0, 0.0}};
    std::vector<Slot> Stack;
    int RegisterWrites = 0;
};

void FuzzBuiltins(const uint8_t* data, size_t size) {
    // Layout: count byte, then count values of 9 bytes (type, double), then
    // the name. The count is kept small so names get bytes too.
    if (size < 1) return;
    const size_t count = data[0] % 4;
    size_t offset = 1;
    SmallMachine machine;
    for (size_t i = 0; i < count && offset + 9 <= size; ++i, offset += 9)
        machine.StackPush(char(data[offset]), DoubleAt(data, size, offset + 1));
    const size_t pushed = machine.Stack.size();
    std::string raw(reinterpret_cast<const char*>(data + offset), size - offset);
    QString name = QString::fromLatin1(raw.c_str());
    const Qz::uint32_t r = QZBuildInFunctions::DoBildInFunctions(&machine, name);
    if (r == Qz::rcNoBuiltin) {
        QZ_FUZZ_CHECK(machine.Stack.size() == pushed && machine.RegisterWrites == 0);
    } else {
        QZ_FUZZ_CHECK(r == Qz::rcOK);
        QZ_FUZZ_CHECK(machine.RegisterWrites == 1);
        QZ_FUZZ_CHECK(pushed - machine.Stack.size() <= 2);
    }
    // And every function directly, on whatever is left.
    typedef Qz::uint32_t (*Function)(CQZ_STInterpretator_Interface*);
    static const Function kAll[] = {
        QZBuildInFunctions::DoCos,  QZBuildInFunctions::DoSin,   QZBuildInFunctions::DoTan,
        QZBuildInFunctions::DoACos, QZBuildInFunctions::DoASin,  QZBuildInFunctions::DoATan,
        QZBuildInFunctions::DoCeil, QZBuildInFunctions::DoFloor, QZBuildInFunctions::DoRound,
        QZBuildInFunctions::DoExp,  QZBuildInFunctions::DoFabs,  QZBuildInFunctions::DoLn,
        QZBuildInFunctions::DoLog10, QZBuildInFunctions::DoPow,  QZBuildInFunctions::DoSqrt,
    };
    for (Function f : kAll) {
        machine.StackPush(char(raw.empty() ? 0x28 : raw[0]), DoubleAt(data, size, 1));
        QZ_FUZZ_CHECK(f(&machine) == Qz::rcOK);
    }
    // CEIL and FLOOR always leave a 32-bit integer of type DINT.
    for (Function f : {QZBuildInFunctions::DoCeil, QZBuildInFunctions::DoFloor}) {
        machine.StackPush(char(0x28), DoubleAt(data, size, 1));
        f(&machine);
        const double v = machine.Registers[0].Value;
        QZ_FUZZ_CHECK(machine.Registers[0].Type == char(0x25));
        QZ_FUZZ_CHECK(v >= -2147483648.0 && v <= 2147483647.0 && v == std::trunc(v));
    }
}

uint32_t StepClock(void* context) { return *static_cast<uint32_t*>(context) += 3; }

// Steps over a token that failed without moving, as the loader does.
bool StepOver(ScanMachine& m, int32_t before) {
    if (m.TextPos != before) return true;
    if (!m.Next()) return false;
    m.SkipWhite();
    return true;
}

void FuzzMachine(const uint8_t* data, size_t size) {
    if (size < 1) return;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    ScanMachine m;
    uint32_t now = 0;
    m.Clock = StepClock;
    m.ClockContext = &now;
    m.InstructionBudget = 2000;  // bounds every CAL's body
    // A few variables of every kind the instructions meet, one of them a VR.
    m.Vars.lookup("X", char(ttVG), char(ttDINT), 1.0, 0, true);
    m.Vars.lookup("B", char(ttV), char(ttBOOL), 1.0, 0, true);
    m.Vars.lookup("R", char(ttVO), char(ttREAL), 2.5, 0, true);
    m.Vars.lookup("S", char(ttVIO), char(char(0x21 + data[0] % 8)), -1.0, 0, true);
    m.Vars.lookup("P", char(ttVR), char(ttLREAL), 0.0, 0, true);
    for (int i = 0; i < (data[0] & 3); ++i) m.StackPush(char(ttSINT), double(i));

    // Register the labels first, as the loader's pass over the body does.
    m.Load(text);
    for (size_t guard = 0; m.CurChar != 0 && guard <= 2 * text.size() + 4; ++guard) {
        const int32_t before = m.TextPos;
        const Qz::uint32_t r = m.Scan(m.TokenText);
        if (r == Qz::rcOK && m.TokenCode == ttEND) break;
        if (r != Qz::rcOK && !StepOver(m, before)) break;
    }
    m.Load(text);
    for (int steps = 0; steps < 2000 && m.CurChar != 0; ++steps) {
        const int32_t before = m.TextPos;
        Qz::uint32_t r = m.Scan(m.TokenText);
        CheckToken(m);
        if (r != Qz::rcOK) {
            if (!StepOver(m, before)) break;
            continue;
        }
        if (m.TokenCode == ttEND) break;
        if (!IsInstructionCode(m.TokenCode)) continue;
        r = m.DoCommand();
        CheckToken(m);
        QZ_FUZZ_CHECK(Qz::ResultMeaning(r) != nullptr);
    }
}

}  // namespace

int QzFuzzText(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t piece = data[0] % 6;
    ++data;
    --size;
    switch (piece) {
    case 0: FuzzScanner(std::string(reinterpret_cast<const char*>(data), size)); break;
    case 1: FuzzLiterals(data, size); break;
    case 2: FuzzVariables(data, size); break;
    case 3: FuzzConvert(data, size); break;
    case 4: FuzzBuiltins(data, size); break;
    default: FuzzMachine(data, size); break;
    }
    return 0;
}

#ifndef QZ_FUZZ_NO_MAIN
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return QzFuzzText(data, size); }
#endif
