// The program's variables and the machine's state, for hosts and debuggers
// that look inside a running program between cycles or from a trace hook.
#include "qz_st_intrpr_main.h"
#include "qz_st_variables.h"

#include <cstring>

using qz_st_interpretator::IQZSTInterpretator;

namespace {

// A host's name as the program's look-up takes it: of `length` bytes the
// first 255 are kept, as of a name in the text. A NUL within the length is
// no name (and stops the reading there, so a length that overstates a
// NUL-terminated string reads nothing beyond it).
bool NameFromHost(const char* name, size_t length, char (&kept)[kTokenBufferSize]) {
    if (length == 0) return false;
    size_t i = 0;
    for (; i < length; ++i) {
        if (name[i] == 0) return false;
        if (i < size_t(kNameLimit)) kept[i] = name[i];
    }
    kept[i < size_t(kNameLimit) ? i : size_t(kNameLimit)] = 0;
    return true;
}

// What `@name` reads: the value narrowed to the variable's type.
double ValueAsRead(const Var& var) {
    double value = var.VarValue;
    CQZ_STInterpretator_Execute::ConvertDim(var.VarValue, value, var.VarType);
    return value;
}

void Visit(const CQZ_Vars& table, QZVariableFunction visit, void* context) {
    for (uint32_t i = 0; i < table.RecordCount(); ++i) {
        const Var& var = *table.Record(i);
        QZVariableInfo info;
        info.Name = var.VarName;
        info.NameLength = uint32_t(std::strlen(var.VarName));
        info.Kind = uint8_t(var.VarKind);
        info.Type = uint8_t(var.VarType);
        info.Ordinal = i;
        info.Value = ValueAsRead(var);
        visit(context, &info);
    }
}

// The variable a body running now would find under `name`; null when none.
uint32_t FindVariable(IQZSTInterpretator* object, const char* name, size_t length, Var*& var) {
    if (!object) return Qz::rcBadHandle;
    CQZ_STInterpretator* machine = ObjectOf(object);
    if (!machine->HasProgram()) return Qz::rcNoProgram;
    if (!name) return Qz::rcBadArgument;
    char kept[kTokenBufferSize];
    if (!NameFromHost(name, length, kept)) return Qz::rcVarNotFound;
    var = machine->GetVar(kept);
    return var ? Qz::rcOK : Qz::rcVarNotFound;
}

}  // namespace

uint32_t QZListVariables(IQZSTInterpretator* object, QZVariableFunction visit, void* context) {
    if (!object) return Qz::rcBadHandle;
    if (!visit) return Qz::rcBadArgument;
    CQZ_STInterpretator* machine = ObjectOf(object);
    if (!machine->HasProgram()) return Qz::rcNoProgram;
    Visit(machine->Vars, visit, context);
    return Qz::rcOK;
}

uint32_t QZListLocals(IQZSTInterpretator* object, QZVariableFunction visit, void* context) {
    if (!object) return Qz::rcBadHandle;
    if (!visit) return Qz::rcBadArgument;
    CQZ_STInterpretator* machine = ObjectOf(object);
    if (!machine->TableStack.empty()) Visit(*machine->TableStack.back(), visit, context);
    return Qz::rcOK;
}

uint32_t QZGetVariable(IQZSTInterpretator* object, const char* name, size_t length, double* value, uint8_t* type) {
    Var* var = nullptr;
    if (uint32_t r = FindVariable(object, name, length, var)) return r;
    if (value) *value = ValueAsRead(*var);
    if (type) *type = uint8_t(var->VarType);
    return Qz::rcOK;
}

uint32_t QZSetVariable(IQZSTInterpretator* object, const char* name, size_t length, double value) {
    Var* var = nullptr;
    if (uint32_t r = FindVariable(object, name, length, var)) return r;
    // As MOV stores: narrowed to the declared type, an output marked written.
    CQZ_STInterpretator_Execute::ConvertDim(value, var->VarValue, var->VarType);
    if (var->VarKind == char(ttVO)) var->Rewrited = true;
    return Qz::rcOK;
}

uint32_t QZGetMachineState(IQZSTInterpretator* object, QZMachineState* state) {
    if (!object) return Qz::rcBadHandle;
    if (!state) return Qz::rcBadArgument;
    const CQZ_STInterpretator* machine = ObjectOf(object);
    state->A0 = machine->A0.Value;
    state->R0 = machine->R0.Value;
    state->R1 = machine->R1.Value;
    state->A0Type = uint8_t(machine->A0.ValueType);
    state->R0Type = uint8_t(machine->R0.ValueType);
    state->R1Type = uint8_t(machine->R1.ValueType);
    state->TestFlag = uint8_t(machine->TestFlag);
    state->StackDepth = machine->Stack.size();
    state->CallDepth = machine->CallStack.size();
    return Qz::rcOK;
}

uint32_t QZGetStack(IQZSTInterpretator* object, QZStackValue* values, size_t capacity, size_t* count) {
    if (!object) return Qz::rcBadHandle;
    if (!count || (!values && capacity != 0)) return Qz::rcBadArgument;
    const std::vector<QZ_StackValue>& stack = ObjectOf(object)->Stack;
    // The top `capacity` values: what a debugger looks at first.
    const size_t n = stack.size() < capacity ? stack.size() : capacity;
    const size_t first = stack.size() - n;
    for (size_t i = 0; i < n; ++i) {
        values[i].Value = stack[first + i].Value;
        values[i].Type = uint8_t(stack[first + i].ValueType);
    }
    *count = n;
    return Qz::rcOK;
}

uint32_t QZGetCall(IQZSTInterpretator* object, size_t index, int32_t* callOffset, int32_t* labelOffset) {
    if (!object) return Qz::rcBadHandle;
    const std::vector<QZ_FuncStackValue>& calls = ObjectOf(object)->CallStack;
    if (index >= calls.size()) return Qz::rcBadArgument;
    if (callOffset) *callOffset = calls[index].CallStart;
    if (labelOffset) *labelOffset = calls[index].LabelStart;
    return Qz::rcOK;
}
