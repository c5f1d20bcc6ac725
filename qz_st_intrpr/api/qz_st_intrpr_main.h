// The plug-in object: loading a program text and running one cycle of it.
#ifndef QZ_ST_INTRPR_MAIN_H
#define QZ_ST_INTRPR_MAIN_H

#include "qz_st_intrpr_execute.h"

#include <vector>

// Host-contract checks (a host's GetValueFrom/SetValueTo returning false
// stops the process) are on in debug builds.
#ifndef QZ_HOST_CONTRACT_CHECKS
#ifdef NDEBUG
#define QZ_HOST_CONTRACT_CHECKS 0
#else
#define QZ_HOST_CONTRACT_CHECKS 1
#endif
#endif

class CQZ_STInterpretator final : public CQZ_STInterpretator_Execute, public qz_st_interpretator::IQZSTInterpretator {
public:
    // The plug-in class is final and overrides none of the machine's four
    // virtual operations, so its programs may run compiled.
    CQZ_STInterpretator() { OwnMachineOperations = true; }
    ~CQZ_STInterpretator() override = default;

    Qz::uint32_t InitInterpretator(std::string text) override;
    void Destroy() override;
    Qz::uint32_t Execute(qz_st_interpretator::IQZExecuteInterface* exec) override;

    // True while the last InitInterpretator loaded its program without failure.
    bool HasProgram() const { return ProgramLoaded; }
    // True during Execute: in the host's callbacks and in a trace hook.
    bool InCycle() const { return CycleRunning; }
    // The declaration behind a name the cycle hands to the host's
    // callbacks (its VarName holds the program's own bytes), or null for
    // any other string.
    const Var* HostDeclaration(const QString& name) const;

private:
    bool ProgramLoaded = false;
    bool CycleRunning = false;
    template <typename Body>
    static Qz::uint32_t Guarded(Body body);
    Qz::uint32_t Load(std::string text);
    Qz::uint32_t RunCycle(qz_st_interpretator::IQZExecuteInterface* exec);
    // Moves the scanner behind the MAIN keyword at the start of a cycle.
    Qz::uint32_t EnterMain();
    Qz::uint32_t LoadProgram();
    Qz::uint32_t FillVariablesList();
    Qz::uint32_t DeclareVariable(const char* name, char kind, char type, const double numbers[4],
                                 double carried[3]);
    Qz::uint32_t ExecuteInitVars();
    Qz::uint32_t UpdateInEntries(qz_st_interpretator::IQZExecuteInterface* exec);
    Qz::uint32_t UpdateOutEntries(qz_st_interpretator::IQZExecuteInterface* exec);

    // One declared V, VI or VO variable as the cycle uses it: its declared
    // record, its live record in the program's table, and its name as the
    // host sees it (built once, not on every cycle).
    struct HostEntry {
        const Var* Declared;
        Var* ProgramRecord;
        QString Name;
    };
    void BuildHostEntries();
    // The live record: the program's own while no frame is left on the table
    // stack, otherwise looked up by name in the innermost frame.
    Var* LiveRecord(const HostEntry& entry) {
        return TableStack.empty() ? entry.ProgramRecord : GetVar(entry.Declared->VarName);
    }
    std::vector<HostEntry> LocalEntries;   // V
    std::vector<HostEntry> InputEntries;   // VI
    std::vector<HostEntry> OutputEntries;  // VO
};

// The object behind the interface pointer Create() returned.
inline CQZ_STInterpretator* ObjectOf(qz_st_interpretator::IQZSTInterpretator* object) {
    return static_cast<CQZ_STInterpretator*>(object);
}

#endif
