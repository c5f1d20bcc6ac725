// The five workloads: a realistic scan, a counting loop, subprogram calls,
// built-in functions and a mix of every instruction family, each as an
// interpreter program, as Lua and as C++.
#include "workloads.h"

#include <cmath>

namespace qzbench {

uint32_t gSimulatedNow = 1000;

namespace {

// ---- scan: a control program of about 100 instructions a cycle ----

const char* const kScanProgram =
    "PROG SCAN VAR "
    "DI0 VI BOOL 0 DI1 VI BOOL 0 DI2 VI BOOL 0 DI3 VI BOOL 0 DI4 VI BOOL 0 DI5 VI BOOL 0 DI6 VI BOOL 0 "
    "DI7 VI BOOL 0 AI0 VI INT 0 AI1 VI INT 0 AI2 VI INT 0 AI3 VI INT 0 "
    "M0 VI LREAL 0 M1 VI LREAL 0 M2 VI LREAL 0 M3 VI LREAL 0 "
    "DO0 VO BOOL 0 DO1 VO BOOL 0 DO2 VO BOOL 0 DO3 VO BOOL 0 DO4 VO BOOL 0 DO5 VO BOOL 0 DO6 VO BOOL 0 "
    "DO7 VO BOOL 0 Q0 VO DINT 0 Q1 VO DINT 0 Q2 VO DINT 0 Q3 VO DINT 0 "
    "Y0 VO LREAL 0 Y1 VO LREAL 0 Y2 VO LREAL 0 Y3 VO LREAL 0 "
    "L0 VG BOOL 0 L1 VG BOOL 0 T1RUN VG BOOL 0 T1START VG UDINT 0 T2RUN VG BOOL 0 T2START VG UDINT 0 "
    "CNT VG DINT 0 DI6P VG BOOL 0 NOW V UDINT 0 "
    "MAIN "
    // Two set/reset latches.
    "MOV @DI0 R0 TST R0 JMPF A1 MOV 1 @L0 "
    "A1: MOV @DI1 R0 TST R0 JMPF A2 MOV 0 @L0 "
    "A2: MOV @L0 @DO0 "
    "MOV @DI2 R0 TST R0 JMPF A3 MOV 1 @L1 "
    "A3: MOV @DI3 R0 TST R0 JMPF A4 MOV 0 @L1 "
    "A4: MOV @L1 @DO1 "
    // Comparisons.
    "MOV @AI0 R0 LT 1000 R0 MOV R0 @DO2 "
    "MOV @AI2 R0 LE @AI1 R0 MOV R0 @DO3 "
    // Two on-delay timers on TICK.
    "MOV TICK R0 MOV R0 @NOW "
    "MOV @DI4 R0 TST R0 JMPF B1 "
    "MOV @T1RUN R0 TST R0 JMPT B0 MOV @NOW @T1START MOV 1 @T1RUN "
    "B0: MOV @T1START R0 SUB @NOW R0 LE 500 R0 MOV R0 @DO4 JMP B2 "
    "B1: MOV 0 @T1RUN MOV 0 @DO4 "
    "B2: MOV @DI5 R0 TST R0 JMPF B4 "
    "MOV @T2RUN R0 TST R0 JMPT B3 MOV @NOW @T2START MOV 1 @T2RUN "
    "B3: MOV @T2START R0 SUB @NOW R0 LE 1200 R0 MOV R0 @DO5 JMP B5 "
    "B4: MOV 0 @T2RUN MOV 0 @DO5 "
    // A counter of rising edges.
    "B5: MOV @DI6 R0 TST R0 JMPF C1 MOV @DI6P R1 TST R1 JMPT C1 MOV @CNT R0 ADD 1 R0 MOV R0 @CNT "
    "C1: MOV @DI6 @DI6P MOV @CNT @Q0 "
    "MOV @L0 R0 XOR @DI7 R0 MOV R0 @DO6 "
    // Integer arithmetic.
    "MOV @AI0 R0 MUL 3 R0 ADD @AI1 R0 MOV 4 R1 DIV R0 R1 MOV 7 R0 MOD @AI2 R0 SUB R1 R0 MOV R0 @Q1 "
    "MOV @AI3 R0 MUL @AI3 R0 MUL 17 R0 ADD @CNT R0 MOV R0 @Q2 "
    "MOV @DO1 R0 MUL 2 R0 ADD @DO0 R0 MOV @DO4 R1 MUL 4 R1 ADD R1 R0 MOV @DO5 R1 MUL 8 R1 ADD R1 R0 "
    "MOV 4 R1 SHL @CNT R1 BAND 16#FF0 R1 BOR R1 R0 MOV R0 @Q3 "
    // Floating-point arithmetic, two built-ins and a subprogram.
    "MOV @M0 R0 MUL 1.8 R0 ADD 32.0 R0 MOV R0 @Y0 "
    "MOV @M2 R0 SUB @M1 R0 MOV 2.5 R1 DIV R0 R1 MOV R1 @Y1 "
    "MOV @M3 R0 MUL @M3 R0 MOV @M0 R1 MUL @M0 R1 ADD R1 R0 MOV R0 PUSH EXEC SQRT MOV A0 @Y2 "
    "MOV @M1 PUSH EXEC SIN MOV @AI3 PUSH CAL SCALE ADD A0 R0 MOV R0 @Y3 "
    "MOV @Y0 R0 LT 100.0 R0 MOV R0 @DO7 "
    "RET "
    "SCALE: RAW V LREAL 0 LO V LREAL -50.0 HI V LREAL 150.0 BODY "
    "MOV POP @RAW MOV @LO R0 SUB @HI R0 MUL @RAW R0 MOV 32767.0 R1 DIV R0 R1 ADD @LO R1 MOV R1 R0 "
    // The text's last RET is its end, not the subprogram's return: close with one more.
    "RET RET";

const char* const kScanLua = R"(
local get, set, tick, sin, sqrt = get, set, tick, math.sin, math.sqrt
-- Kept from cycle to cycle. Bits are the integers 0 and 1: they are added,
-- shifted and handed to set() as numbers.
local L0, L1, T1RUN, T1START, T2RUN, T2START, CNT, DI6P = 0, 0, 0, 0, 0, 0, 0, 0

local function scale(raw)
  return -50.0 + raw * 200.0 / 32767.0  -- lo + raw * (hi - lo) / 32767
end

function cycle()
  -- Integer ports arrive as Lua integers, the others as floats.
  local di0, di1, di2, di3 = get("DI0"), get("DI1"), get("DI2"), get("DI3")
  local di4, di5, di6, di7 = get("DI4"), get("DI5"), get("DI6"), get("DI7")
  local ai0, ai1, ai2, ai3 = get("AI0"), get("AI1"), get("AI2"), get("AI3")
  local m0, m1, m2, m3 = get("M0"), get("M1"), get("M2"), get("M3")

  if di0 ~= 0 then L0 = 1 end
  if di1 ~= 0 then L0 = 0 end
  if di2 ~= 0 then L1 = 1 end
  if di3 ~= 0 then L1 = 0 end
  local DO2 = 1000 < ai0 and 1 or 0
  local DO3 = ai1 <= ai2 and 1 or 0

  -- The tick only grows, and a timer runs far less than 2^31 ms: the
  -- elapsed time needs no 32-bit wrapping.
  local now = tick()
  local DO4, DO5 = 0, 0
  if di4 ~= 0 then
    if T1RUN == 0 then T1START = now; T1RUN = 1 end
    if now - T1START >= 500 then DO4 = 1 end
  else
    T1RUN = 0
  end
  if di5 ~= 0 then
    if T2RUN == 0 then T2START = now; T2RUN = 1 end
    if now - T2START >= 1200 then DO5 = 1 end
  else
    T2RUN = 0
  end

  -- One edge every few cycles: the counter never comes near 2^31.
  if di6 ~= 0 and DI6P == 0 then CNT = CNT + 1 end
  DI6P = di6
  local DO6 = L0 ~ di7

  -- AI0..AI3 are 16-bit, so 3 * AI0 + AI1 and the quotient and remainder
  -- stay small; DIV and MOD truncate towards zero.
  local t = 3 * ai0 + ai1
  local q = t >= 0 and t // 4 or -(-t // 4)
  local r = ai2 >= 0 and ai2 % 7 or -(-ai2 % 7)
  local Q1 = q - r
  -- 17 * AI3^2 overflows 32 bits: wrapped once, as the interpreter's
  -- wrapping MUL, MUL, ADD give the same low 32 bits.
  local Q2 = (17 * ai3 * ai3 + CNT + 0x80000000 & 0xFFFFFFFF) - 0x80000000
  local Q3 = CNT << 4 & 0xFF0 | L0 | L1 << 1 | DO4 << 2 | DO5 << 3

  local Y0 = 32.0 + 1.8 * m0
  local Y1 = (m1 - m2) / 2.5
  local Y2 = sqrt(m0 * m0 + m3 * m3)
  local Y3 = sin(m1) + scale(ai3)
  local DO7 = 100.0 < Y0 and 1 or 0

  set("DO0", L0) set("DO1", L1) set("DO2", DO2) set("DO3", DO3)
  set("DO4", DO4) set("DO5", DO5) set("DO6", DO6) set("DO7", DO7)
  set("Q0", CNT) set("Q1", Q1) set("Q2", Q2) set("Q3", Q3)
  set("Y0", Y0) set("Y1", Y1) set("Y2", Y2) set("Y3", Y3)
end
)";

class NativeScan : public NativeProgram {
public:
    void Cycle(const double* in, double* out) override {
        const bool di0 = in[0] != 0, di1 = in[1] != 0, di2 = in[2] != 0, di3 = in[3] != 0;
        const bool di4 = in[4] != 0, di5 = in[5] != 0, di6 = in[6] != 0, di7 = in[7] != 0;
        const int32_t ai0 = int32_t(in[8]), ai1 = int32_t(in[9]), ai2 = int32_t(in[10]), ai3 = int32_t(in[11]);
        const double m0 = in[12], m1 = in[13], m2 = in[14], m3 = in[15];

        if (di0) L0 = true;
        if (di1) L0 = false;
        if (di2) L1 = true;
        if (di3) L1 = false;

        // NOW is a UDINT and the elapsed time a wrapping 32-bit difference.
        const uint32_t now = uint32_t(Tick.Read());
        bool do4 = false, do5 = false;
        if (di4) {
            if (!T1Run) T1Start = now, T1Run = true;
            do4 = 500 <= int32_t(now - T1Start);
        } else {
            T1Run = false;
        }
        if (di5) {
            if (!T2Run) T2Start = now, T2Run = true;
            do5 = 1200 <= int32_t(now - T2Start);
        } else {
            T2Run = false;
        }
        if (di6 && !Di6p) Count = int32_t(uint32_t(Count) + 1u);
        Di6p = di6;

        // DINT arithmetic wraps: unsigned 32-bit operations give its bits.
        const int32_t t = int32_t(3u * uint32_t(ai0) + uint32_t(ai1));
        const int32_t q1 = int32_t(uint32_t(t / 4) - uint32_t(ai2 % 7));
        const int32_t q2 = int32_t(17u * uint32_t(ai3) * uint32_t(ai3) + uint32_t(Count));
        const int32_t q3 =
            int32_t((uint32_t(Count) << 4) & 0xFF0u) | (L0 | L1 << 1 | do4 << 2 | do5 << 3);
        const double y0 = 32.0 + 1.8 * m0;

        out[0] = L0;
        out[1] = L1;
        out[2] = 1000 < ai0;
        out[3] = ai1 <= ai2;
        out[4] = do4;
        out[5] = do5;
        out[6] = di7 != L0;
        out[7] = 100.0 < y0;
        out[8] = Count;
        out[9] = q1;
        out[10] = q2;
        out[11] = q3;
        out[12] = y0;
        out[13] = (m1 - m2) / 2.5;
        out[14] = std::sqrt(m0 * m0 + m3 * m3);
        out[15] = std::sin(m1) + (-50.0 + ai3 * 200.0 / 32767.0);  // lo + raw * (hi - lo) / 32767
    }

private:
    bool L0 = false, L1 = false, T1Run = false, T2Run = false, Di6p = false;
    uint32_t T1Start = 0, T2Start = 0;
    int32_t Count = 0;
    TickCounter Tick;
};

void ScanInputs(uint64_t n, double* v) {
    for (int k = 0; k < 4; ++k) v[k] = double(((n >> (k + 1)) + uint64_t(k)) & 1);
    v[4] = double((n / 80) & 1);  // held long enough for the timers
    v[5] = double((n / 200) & 1);
    v[6] = double((n >> 2) & 1);
    v[7] = double((n >> 3) & 1);
    v[8] = double((n * 37) % 2000);
    v[9] = double((n * 53) % 3000) - 1000.0;
    v[10] = double((n * 71) % 2500) - 500.0;
    v[11] = double((n * 13) % 32768);
    v[12] = double(n % 100) * 1.25 - 20.0;
    v[13] = 0.01 * double(n % 1000);
    v[14] = 3.5 - 0.02 * double(n % 50);
    v[15] = 2.0 + double(n % 7);
}

// ---- loop: one cycle of a 100,000-turn counting loop ----

const char* const kLoopProgram =
    "PROG LOOP VAR I V DINT 0 SUM V DINT 0 N VI DINT 0 RESULT VO DINT 0 MAIN "
    "MOV 0 @SUM MOV 0 @I "
    "L: MOV @SUM R0 ADD @I R0 MOV R0 @SUM MOV @I R1 ADD 1 R1 MOV R1 @I GT @N R1 TST R1 JMPT L "
    "MOV @SUM @RESULT RET";

const char* const kLoopLua = R"(
local get, set = get, set
function cycle()
  local n = get("N")
  -- The program tests N > I after the body, but its first turn adds I = 0,
  -- so a for loop gives the same sum. I stays below N; the sum of 100,000
  -- turns passes 2^31, and 64-bit integers carry it exactly: wrapped once at
  -- the end, it has the low 32 bits of the interpreter's wrapping sum.
  local sum = 0
  for i = 0, n - 1 do sum = sum + i end
  set("RESULT", (sum + 0x80000000 & 0xFFFFFFFF) - 0x80000000)
end
)";

class NativeLoop : public NativeProgram {
public:
    void Cycle(const double* in, double* out) override {
        // The first turn adds I = 0, so testing before the body gives the
        // same sum. Unsigned addition wraps as DINT's ADD does.
        const int32_t n = int32_t(in[0]);
        uint32_t sum = 0;
        for (int32_t i = 0; i < n; ++i) sum += uint32_t(i);
        out[0] = int32_t(sum);
    }
};

// ---- call: 1,000 calls of a subprogram with three locals ----

const char* const kCallProgram =
    "PROG CALLS VAR K V DINT 0 ACC V LREAL 0 N VI DINT 0 OUT VO LREAL 0 MAIN "
    "L: MOV @K PUSH CAL F MOV R0 A0 ADD @ACC A0 MOV A0 @ACC "
    "MOV @K R1 ADD 1 R1 MOV R1 @K GT @N R1 TST R1 JMPT L "
    "MOV @ACC @OUT RET "
    "F: X V DINT 0 Y V LREAL 0 Z V DINT 0 BODY "
    "MOV POP @X MOV @X R0 MUL 3 R0 MOV R0 @Z MOV @X R0 MUL 0.5 R0 MOV R0 @Y MOV @Y R0 ADD @Z R0 "
    "RET RET";

const char* const kCallLua = R"(
local get, set = get, set
local function f(x)
  local z = 3 * x  -- DINT; x < N = 1000, far from overflowing
  local y = 0.5 * x
  return z + y
end
function cycle()
  local n = get("N")
  local acc = 0.0
  for k = 0, n - 1 do acc = acc + f(k) end
  set("OUT", acc)
end
)";

class NativeCall : public NativeProgram {
public:
    void Cycle(const double* in, double* out) override {
        const int32_t n = int32_t(in[0]);
        double acc = 0.0;
        for (int32_t k = 0; k < n; ++k) acc = acc + F(k);
        out[0] = acc;
    }

private:
    static double F(int32_t x) {
        const int32_t z = int32_t(3u * uint32_t(x));  // DINT: wraps
        const double y = 0.5 * x;
        return z + y;
    }
};

// ---- builtin: SIN, SQRT and POW, 1,000 times each, through the stack ----

const char* const kBuiltinProgram =
    "PROG BUILTINS VAR K V DINT 0 X V LREAL 0 ACC V LREAL 0 N VI DINT 0 OUT VO LREAL 0 MAIN "
    "L: MOV @K R0 MUL 0.001 R0 MOV R0 @X "
    "MOV @X PUSH EXEC SIN MOV @ACC R0 ADD A0 R0 MOV R0 @ACC "
    "MOV @X PUSH EXEC SQRT MOV @ACC R0 ADD A0 R0 MOV R0 @ACC "
    "MOV @X PUSH MOV 1.5 PUSH EXEC POW MOV @ACC R0 ADD A0 R0 MOV R0 @ACC "
    "MOV @K R1 ADD 1 R1 MOV R1 @K GT @N R1 TST R1 JMPT L "
    "MOV @ACC @OUT RET";

const char* const kBuiltinLua = R"(
local get, set, sin, sqrt = get, set, math.sin, math.sqrt
function cycle()
  local n = get("N")
  local acc = 0.0
  for k = 0, n - 1 do
    local x = 0.001 * k
    acc = sin(x) + acc
    acc = sqrt(x) + acc
    acc = x ^ 1.5 + acc
  end
  set("OUT", acc)
end
)";

class NativeBuiltin : public NativeProgram {
public:
    void Cycle(const double* in, double* out) override {
        const int32_t n = int32_t(in[0]);
        double acc = 0.0;
        for (int32_t k = 0; k < n; ++k) {
            const double x = 0.001 * k;
            acc = std::sin(x) + acc;
            acc = std::sqrt(x) + acc;
            acc = std::pow(x, 1.5) + acc;
        }
        out[0] = acc;
    }
};

// ---- mixed: one cycle of about 2,000 instructions of every family ----
//
// 25 channels a cycle. Each turn draws a raw reading from a xorshift
// generator (shifts, bit operations on UDINT), scales it in a subprogram
// (REAL stores), filters it (LREAL), folds it into integer sums (DIV, MOD,
// a wrapping hash), counts it as a high or low alarm through a reference,
// sets the channel's flag bit, and mixes it into a checksum in a second
// subprogram that updates the checksum through a reference passed on the
// stack (ROL, BXOR); the generator's state rotated by the channel number
// goes into the checksum too (ROR).

const char* const kMixedProgram =
    "PROG MIXED VAR "
    "SEED VI DINT 0 GAIN VI REAL 0 LIMIT VI INT 0 MODE VI BOOL 0 "
    "N V DINT 25 I V DINT 0 X V UDINT 0 RAW V DINT 0 ENG V REAL 0 SUM V LREAL 0 "
    "ACC V DINT 0 H V DINT 0 HI V DINT 0 LO V DINT 0 P V DINT 0 FLAGS V DINT 0 CHK V UDINT 0 "
    "FILT VG LREAL 0 "
    "OCHK VO UDINT 0 OH VO DINT 0 OACC VO INT 0 OFLAGS VO DINT 0 OHI VO DINT 0 OLO VO DINT 0 "
    "OSUM VO LREAL 0 OMEAN VO LREAL 0 OFILT VO LREAL 0 OFIX VO DINT 0 OENG VO REAL 0 "
    "MAIN "
    "MOV @SEED R0 BOR 1 R0 MOV R0 @X "
    // X := X xor X << 13, xor X >> 17, xor X << 5 (UDINT: logical shifts).
    "L: MOV @X R0 MOV 13 R1 SHL R0 R1 BXOR R1 R0 MOV 17 R1 SHR R0 R1 BXOR R1 R0 "
    "MOV 5 R1 SHL R0 R1 BXOR R1 R0 MOV R0 @X "
    // RAW := 2048 - (X AND 16#FFF), in -2047..2048.
    "BAND 16#FFF R0 SUB 2048 R0 MOV R0 @RAW "
    "MOV @RAW PUSH MOV @GAIN PUSH CAL SCALE MOV R0 @ENG "
    // FILT := FILT + (ENG - FILT) * 0.125; SUM := SUM + ENG * ENG.
    "MOV @FILT R0 SUB @ENG R0 MUL 0.125 R0 ADD @FILT R0 MOV R0 @FILT "
    "MOV @ENG R0 MUL @ENG R0 ADD @SUM R0 MOV R0 @SUM "
    // ACC := ACC + (RAW MOD 7) * (RAW DIV 3); H := H * 31 + RAW, wrapping.
    "MOV 7 R0 MOD @RAW R0 MOV 3 R1 DIV @RAW R1 MUL R0 R1 ADD @ACC R1 MOV R1 @ACC "
    "MOV @H R0 MUL 31 R0 ADD @RAW R0 MOV R0 @H "
    // Above LIMIT (when MODE allows) counts in HI, below -LIMIT in LO.
    "MOV @ENG R0 LT @LIMIT R0 AND @MODE R0 TST R0 JMPF M1 MOVA @HI @P JMP M2 "
    "M1: MOV @LIMIT R0 NG R0 LT @ENG R0 NOT R0 TST R0 JMPT M3 MOVA @LO @P "
    "M2: MOV ^P R0 ADD 1 R0 MOV R0 ^P MOV @I R1 SHL 1 R1 BOR @FLAGS R1 MOV R1 @FLAGS "
    "M3: MOVA @CHK R0 MOV R0 PUSH MOV @RAW PUSH CAL MIX "
    "MOV @I R1 ROR @X R1 BXOR @CHK R1 MOV R1 @CHK "
    "MOV @I R1 ADD 1 R1 MOV R1 @I GT @N R1 TST R1 JMPT L "
    "MOV @CHK R0 BNOT R0 MOV R0 @OCHK MOV @H @OH MOV @ACC R0 MUL 37 R0 MOV R0 @OACC "
    "MOV @FLAGS @OFLAGS MOV @HI @OHI MOV @LO @OLO MOV @SUM @OSUM "
    "MOV @SUM R0 MOV @N R1 DIV R0 R1 MOV R1 @OMEAN MOV @FILT @OFILT "
    "MOV @FILT R0 MUL 100.0 R0 MOV R0 @OFIX MOV @ENG @OENG "
    "RET "
    // SCALE(raw, gain): REAL (raw * gain) + 0.1, rounded to REAL at each store.
    "SCALE: SR V DINT 0 SG V REAL 0 SE V REAL 0 BODY "
    "MOV POP @SG MOV POP @SR MOV @SR R0 MUL @SG R0 MOV R0 @SE MOV @SE R0 ADD 0.1 R0 MOV R0 @SE "
    "MOV @SE R0 RET "
    // MIX(reference to a checksum, value): checksum := (checksum ROL 5) BXOR value.
    "MIX: MP V UDINT 0 MV V DINT 0 BODY "
    "MOV POP @MV MOV POP R0 MOVA R0 @MP MOV 5 R1 ROL ^MP R1 BXOR @MV R1 MOV R1 ^MP RET "
    "RET";

const char* const kMixedLua = R"(
local get, set, floor, ceil = get, set, math.floor, math.ceil
local N <const> = 25
local filt = 0.0  -- FILT, kept from cycle to cycle

-- A REAL store rounds to single precision. Lua has only doubles: Veltkamp's
-- split with 2^29 + 1 keeps the upper 24 significant bits, rounded to
-- nearest with ties to even as a float conversion does (for values in the
-- normal single range, as all of these are).
local function scale(raw, gain)
  local e = gain * raw
  local c = e * 536870913.0
  e = c - (c - e)
  e = 0.1 + e
  c = e * 536870913.0
  return c - (c - e)
end

-- A checksum is 32 bits: kept in 0..2^32-1, cut back after every shift
-- that can carry bits beyond.
local function mix(chk, raw)
  return (chk << 5 | chk >> 27) & 0xFFFFFFFF ~ raw & 0xFFFFFFFF
end

function cycle()
  local x = (get("SEED") | 1) & 0xFFFFFFFF
  local gain = get("GAIN")
  local c = gain * 536870913.0  -- the input is REAL
  gain = c - (c - gain)
  local limit = get("LIMIT") + 0.0  -- compared with floats below
  local nlimit = -limit
  local mode = get("MODE") ~= 0

  local f, sum, acc, h, hi, lo, flags, chk, eng = filt, 0.0, 0, 0, 0, 0, 0, 0, 0.0
  for i = 0, N - 1 do
    x = x ~ x << 13 & 0xFFFFFFFF
    x = x ~ x >> 17
    x = x ~ x << 5 & 0xFFFFFFFF
    local raw = 2048 - (x & 0xFFF)
    eng = scale(raw, gain)
    f = f + (eng - f) * 0.125
    sum = sum + eng * eng
    -- DIV and MOD truncate towards zero; the terms stay small.
    local m = raw >= 0 and raw % 7 or -(-raw % 7)
    local q = raw >= 0 and raw // 3 or -(-raw // 3)
    acc = acc + m * q
    -- Wraps: only its low 32 bits count, cut back once after the loop.
    h = h * 31 + raw
    if mode and limit < eng then
      hi = hi + 1
      flags = flags | 1 << i
    elseif eng < nlimit then
      lo = lo + 1
      flags = flags | 1 << i
    end
    chk = mix(chk, raw)
    chk = chk ~ (x >> i | x << 32 - i) & 0xFFFFFFFF
  end
  filt = f

  local fix = f * 100.0  -- to DINT: truncated
  set("OCHK", ~chk & 0xFFFFFFFF)
  set("OH", (h + 0x80000000 & 0xFFFFFFFF) - 0x80000000)
  set("OACC", (37 * acc + 0x8000 & 0xFFFF) - 0x8000)  -- INT
  set("OFLAGS", flags) set("OHI", hi) set("OLO", lo)
  set("OSUM", sum) set("OMEAN", sum / N) set("OFILT", f)
  set("OFIX", fix >= 0 and floor(fix) or ceil(fix))
  set("OENG", eng)
end
)";

class NativeMixed : public NativeProgram {
public:
    void Cycle(const double* in, double* out) override {
        const int32_t seed = int32_t(in[0]);
        const float gain = float(in[1]);  // REAL
        const int32_t limit = int32_t(in[2]);
        const bool mode = in[3] != 0;

        uint32_t x = uint32_t(seed | 1), h = 0, chk = 0;
        int32_t acc = 0, hi = 0, lo = 0, flags = 0;
        double sum = 0.0;
        float eng = 0.0f;
        for (int32_t i = 0; i < kChannels; ++i) {
            x ^= x << 13;
            x ^= x >> 17;
            x ^= x << 5;
            const int32_t raw = 2048 - int32_t(x & 0xFFFu);
            eng = Scale(raw, gain);
            Filter = Filter + (eng - Filter) * 0.125;
            sum = sum + double(eng) * eng;
            acc += (raw % 7) * (raw / 3);
            h = h * 31u + uint32_t(raw);
            if (mode && limit < eng) {
                ++hi;
                flags |= 1 << i;
            } else if (eng < -limit) {
                ++lo;
                flags |= 1 << i;
            }
            chk = RotateLeft(chk, 5) ^ uint32_t(raw);
            chk ^= RotateRight(x, uint32_t(i));
        }

        const double fix = Filter * 100.0;
        out[0] = ~chk;
        out[1] = int32_t(h);
        out[2] = int16_t(uint16_t(37u * uint32_t(acc)));  // INT
        out[3] = flags;
        out[4] = hi;
        out[5] = lo;
        out[6] = sum;
        out[7] = sum / kChannels;
        out[8] = Filter;
        out[9] = int32_t(fix);
        out[10] = eng;
    }

private:
    static constexpr int32_t kChannels = 25;
    // Both stores round to single precision.
    static float Scale(int32_t raw, float gain) {
        const float e = float(double(gain) * raw);
        return float(0.1 + e);
    }
    static uint32_t RotateLeft(uint32_t v, uint32_t n) { return v << n | v >> ((32 - n) & 31); }
    static uint32_t RotateRight(uint32_t v, uint32_t n) { return v >> n | v << ((32 - n) & 31); }
    double Filter = 0.0;
};

void MixedInputs(uint64_t n, double* v) {
    v[0] = double((n * 2654435761u) % 4294967296u) - 2147483648.0;  // SEED: all of DINT
    v[1] = 0.004 + 0.0001 * double(n % 97);                            // GAIN: not a float
    v[2] = double(8 + n % 13);                                          // LIMIT
    v[3] = double((n >> 3) & 1);                                        // MODE
}

template <typename T>
std::unique_ptr<NativeProgram> Make() {
    return std::unique_ptr<NativeProgram>(new T());
}

void LoopInputs(uint64_t, double* v) { v[0] = 100000; }
void CallInputs(uint64_t, double* v) { v[0] = 1000; }

}  // namespace

const std::vector<Workload>& Workloads() {
    static const std::vector<Workload> workloads = [] {
        std::vector<Workload> w;
        w.push_back(Workload{"scan", kScanProgram, kScanLua,
                             {{"DI0", true}, {"DI1", true}, {"DI2", true}, {"DI3", true}, {"DI4", true},
                              {"DI5", true}, {"DI6", true}, {"DI7", true}, {"AI0", true}, {"AI1", true},
                              {"AI2", true}, {"AI3", true}, {"M0", false}, {"M1", false}, {"M2", false},
                              {"M3", false}},
                             {{"DO0", true}, {"DO1", true}, {"DO2", true}, {"DO3", true}, {"DO4", true},
                              {"DO5", true}, {"DO6", true}, {"DO7", true}, {"Q0", true}, {"Q1", true},
                              {"Q2", true}, {"Q3", true}, {"Y0", false}, {"Y1", false}, {"Y2", false},
                              {"Y3", false}},
                             ScanInputs, 1024, Make<NativeScan>});
        w.push_back(Workload{"loop", kLoopProgram, kLoopLua, {{"N", true}}, {{"RESULT", true}}, LoopInputs, 1,
                             Make<NativeLoop>});
        w.push_back(Workload{"call", kCallProgram, kCallLua, {{"N", true}}, {{"OUT", false}}, CallInputs, 1,
                             Make<NativeCall>});
        w.push_back(Workload{"builtin", kBuiltinProgram, kBuiltinLua, {{"N", true}}, {{"OUT", false}}, CallInputs, 1,
                             Make<NativeBuiltin>});
        w.push_back(Workload{"mixed", kMixedProgram, kMixedLua,
                             {{"SEED", true}, {"GAIN", false}, {"LIMIT", true}, {"MODE", true}},
                             {{"OCHK", true}, {"OH", true}, {"OACC", true}, {"OFLAGS", true}, {"OHI", true},
                              {"OLO", true}, {"OSUM", false}, {"OMEAN", false}, {"OFILT", false}, {"OFIX", true},
                              {"OENG", false}},
                             MixedInputs, 1024, Make<NativeMixed>});
        return w;
    }();
    return workloads;
}

}  // namespace qzbench
