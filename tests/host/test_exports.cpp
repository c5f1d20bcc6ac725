// The plug-in's dynamic symbol table holds the host ABI and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

std::set<std::string> ExportedSymbols() {
    const std::string command = std::string(QZ_NM_COMMAND) + " -D --defined-only " + QZ_PLUGIN_PATH;
    FILE* pipe = popen(command.c_str(), "r");
    std::set<std::string> names;
    if (!pipe) return names;
    char line[1024];
    while (fgets(line, sizeof line, pipe)) {
        char address[64], kind[8], name[900];
        if (sscanf(line, "%63s %7s %899s", address, kind, name) == 3) names.insert(name);
    }
    pclose(pipe);
    return names;
}

TEST(Exports, ExactlyTheHostInterface) {
    const std::set<std::string> expected = {
        "Create",
        "Destroy",
        "TokensTable",
        "QZSetInstructionBudget",
        "QZSetClock",
        "QZSetTraceHook",
        "QZGetScanPosition",
        "QZSetStackLimit",
        "QZSetCallDepthLimit",
        "QZSetMemoryLimit",
        "QZRecover",
        "QZListVariables",
        "QZListLocals",
        "QZGetVariable",
        "QZSetVariable",
        "QZSaveRetained",
        "QZRestoreRetained",
        "QZGetMachineState",
        "QZGetStack",
        "QZGetCall",
        "qz_version",
        "qz_result_message",
        "qz_result_name",
        "qz_new",
        "qz_close",
        "qz_load",
        "qz_load_source",
        "qz_run",
        "qz_where",
        "qz_recover",
        "qz_set_budget",
        "qz_set_clock",
        "qz_set_trace",
        "qz_set_stack_limit",
        "qz_set_call_depth_limit",
        "qz_set_memory_limit",
        "qz_list_variables",
        "qz_list_locals",
        "qz_get_variable",
        "qz_set_variable",
        "qz_save_retained",
        "qz_restore_retained",
        "qz_get_machine",
        "qz_get_stack",
        "qz_get_call",
        "qz_check",
        "QZCheckProgram",
        "QZCheckWarning",
        "_Z8_qzcscpyPcmPKc",
        "_Z8_qzcscatPcmPKc",
        "_ZN18QZBuildInFunctions17DoBildInFunctionsEP29CQZ_STInterpretator_InterfaceR7QString",
        "_ZN18QZBuildInFunctions5DoCosEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions5DoSinEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions5DoTanEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions6DoACosEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions6DoASinEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions6DoATanEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions6DoCeilEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions7DoFloorEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions7DoRoundEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions5DoExpEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions6DoFabsEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions4DoLnEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions7DoLog10EP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions5DoPowEP29CQZ_STInterpretator_Interface",
        "_ZN18QZBuildInFunctions6DoSqrtEP29CQZ_STInterpretator_Interface",
    };
    EXPECT_EQ(ExportedSymbols(), expected);
}

}  // namespace
