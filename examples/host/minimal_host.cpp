// A minimal host of the interpreter library: one program, a few cycles.
//
// It shows the whole life of an interpreter object: Create, InitInterpretator
// with the program text, Execute once per cycle with the host's own
// IQZExecuteInterface, and Destroy on the interface.
#include "qz_st_interpretator.h"
#include "qz_st_result_codes.h"

#include <QString>
#include <cstdio>
#include <map>
#include <string>

namespace {

// The program: a push button toggles a lamp on each press (rising edge) and
// a counter counts the presses. One line of blank-separated words, as the
// interpreter reads it; a host that keeps programs in files with line
// breaks and comments blanks those out first.
const char kProgram[] =
    "PROG TOGGLE VAR"
    " BUTTON VI BOOL 0  LAST VG BOOL 0"
    " LAMP VO BOOL 0  PRESSES VO DINT 0"
    " MAIN"
    " MOV @LAST R0 NOT R0 MOV @BUTTON R1 AND R1 R0 MOV @BUTTON @LAST"
    " TST R0 JMPF DONE"
    " MOV @LAMP R0 NOT R0 MOV R0 @LAMP"
    " MOV @PRESSES R0 ADD 1 R0 MOV R0 @PRESSES"
    " DONE: RET";

// The host side of the boundary: inputs come from a map, outputs are
// printed as they arrive.
class Host : public qz_st_interpretator::IQZExecuteInterface {
public:
    virtual ~Host() = default;

    bool GetValueFrom(CQZDirection, const QString& name, double& value) override {
        const auto input = Inputs.find(name.toStdString());
        if (input == Inputs.end()) return false;  // an input the host does not have
        value = input->second;
        return true;
    }

    bool SetValueTo(CQZDirection, const QString& name, double value, int dimension, bool rewrited) override {
        // dimension: 1 BOOL, 2 SINT, 3 USINT, 4 INT, 5 UINT, 6 DINT, 7 UDINT, 10 REAL, 11 LREAL
        std::printf(" %s=%g%s", name.toStdString().c_str(), value, rewrited ? "*" : "");
        (void)dimension;
        return true;
    }

    std::map<std::string, double> Inputs{{"BUTTON", 0.0}};
};

}  // namespace

int main() {
    qz_st_interpretator::IQZSTInterpretator* interpreter = Create();
    QZSetInstructionBudget(interpreter, 100000);  // a cycle never runs away

    if (Qz::uint32_t code = interpreter->InitInterpretator(kProgram)) {
        std::fprintf(stderr, "load failed: error %u: %s\n", code, Qz::ResultMeaning(code));
        interpreter->Destroy();
        return 1;
    }

    Host host;
    const double button[] = {0, 1, 1, 0, 1, 0};
    int status = 0;
    for (int cycle = 1; cycle <= 6; ++cycle) {
        host.Inputs["BUTTON"] = button[cycle - 1];
        std::printf("cycle %d: BUTTON=%g ->", cycle, button[cycle - 1]);
        const Qz::uint32_t code = interpreter->Execute(&host);
        std::printf("\n");
        if (code != Qz::rcOK) {
            std::fprintf(stderr, "cycle %d failed: error %u: %s\n", cycle, code, Qz::ResultMeaning(code));
            status = 1;
            break;
        }
    }
    interpreter->Destroy();
    return status;
}
