// The C interface (qz_c.h): an opaque handle around one interpreter object,
// names as UTF-8 bytes, C callbacks for inputs, outputs, clock and trace.
// Each function checks its handle's tag first and stops every exception at
// the boundary, so a wrong handle or a refused allocation is a result code.
#include "qz_c.h"

#include "qz_source.h"
#include "qz_st_intrpr_main.h"
#include "qz_st_variables.h"

#include <cstring>
#include <new>
#include <string>

#ifndef QZ_VERSION_STRING
#define QZ_VERSION_STRING "0.0.0"
#endif

using qz_st_interpretator::IQZExecuteInterface;

struct qz_state {
    uint32_t Tag;
    CQZ_STInterpretator* Object;
    std::string Source;  // the text as the host gave it, for lines and columns
    std::string Flat;    // the text as loaded
    uint32_t LastCode = 0;
    bool CommentFailed = false;  // the last load stopped at an unclosed comment
    size_t CommentOffset = 0;
    qz_trace_fn Trace = nullptr;
    void* TraceContext = nullptr;
    bool Running = false;  // inside qz_run: its callbacks must not reload, rerun or close
};

namespace {

constexpr uint32_t kTag = 0x515a4331;  // "QZC1"

static_assert(QZ_rcOK == 0 && QZ_rcDivisionByZero == 15 && QZ_rcUnclosedComment == 113,
              "the C enumeration is the library's table");
static_assert(int(QZ_TYPE_BOOL) == int(ttBOOL) && int(QZ_TYPE_LREAL) == int(ttLREAL) && int(QZ_KIND_V) == int(ttV) &&
                  int(QZ_KIND_VR) == int(ttVR),
              "type and kind codes are the language's");

bool Valid(const qz_state* Q) { return Q && Q->Tag == kTag; }

// Runs `body` for a valid handle, turning every exception into a code.
template <typename Body>
int Guarded(qz_state* Q, Body body) {
    if (!Valid(Q)) return QZ_rcBadHandle;
    try {
        return int(body(*Q));
    } catch (const std::bad_alloc&) {
        return QZ_rcOutOfMemory;
    } catch (...) {
        return QZ_rcInternalFailure;
    }
}

// A text from the host: the bytes up to `length` or to a NUL before it (the
// interpreter ends a text there anyway; this way a length that overstates a
// NUL-terminated string reads nothing beyond it).
bool HostText(const char* text, size_t length, std::string& out) {
    if (!text) {
        out.clear();
        return length == 0;
    }
    out.assign(text, strnlen(text, length));
    return true;
}

int Load(qz_state& Q, const char* text, size_t length, bool blank) {
    std::string source;
    if (!HostText(text, length, source)) return QZ_rcBadArgument;
    std::string flat = source;
    size_t commentAt = 0;
    Q.CommentFailed = blank && !qz::BlankComments(flat, commentAt);
    Q.Source.swap(source);
    if (Q.CommentFailed) {
        // A load that fails replaces the program, whatever stopped it: the
        // handle must not go on running the one loaded before.
        Q.Object->InitInterpretator(std::string());
        Q.CommentOffset = commentAt;
        Q.Flat.clear();
        Q.LastCode = QZ_rcUnclosedComment;
        return QZ_rcUnclosedComment;
    }
    Q.Flat = flat;
    Q.LastCode = Q.Object->InitInterpretator(std::move(flat));
    return int(Q.LastCode);
}

// The host of one qz_run: the cycle's names are the entries' own, whose
// declarations hold the program's bytes, so no name is converted.
class CallbackHost final : public IQZExecuteInterface {
public:
    CallbackHost(const CQZ_STInterpretator& object, qz_input_fn input, qz_output_fn output, void* context)
        : Object(object), Input(input), Output(output), Context(context) {}

    bool GetValueFrom(CQZDirection, const QString& name, double& value) override {
        if (!Input) return true;
        const Var* declared = Object.HostDeclaration(name);
        if (!declared) return true;
        Input(Context, declared->VarName, std::strlen(declared->VarName), &value);
        return true;
    }
    bool SetValueTo(CQZDirection, const QString& name, double value, int, bool written) override {
        if (!Output) return true;
        const Var* declared = Object.HostDeclaration(name);
        if (!declared) return true;
        Output(Context, declared->VarName, std::strlen(declared->VarName), value, uint8_t(declared->VarType),
               written ? 1 : 0);
        return true;
    }

private:
    const CQZ_STInterpretator& Object;
    qz_input_fn Input;
    qz_output_fn Output;
    void* Context;
};

void TraceTrampoline(void* context, const QZTraceEvent* event) {
    const qz_state* Q = static_cast<const qz_state*>(context);
    qz_trace_event out;
    out.start = event->InstructionStart;
    out.end = event->InstructionEnd;
    out.result = int(event->Result);
    out.a0 = event->A0;
    out.r0 = event->R0;
    out.r1 = event->R1;
    out.a0_type = uint8_t(event->A0Type);
    out.r0_type = uint8_t(event->R0Type);
    out.r1_type = uint8_t(event->R1Type);
    out.test_flag = event->TestFlag;
    Q->Trace(Q->TraceContext, &out);
}

struct VisitContext {
    qz_variable_fn Visit;
    void* Context;
};

void VisitTrampoline(void* context, const QZVariableInfo* info) {
    const VisitContext* visit = static_cast<const VisitContext*>(context);
    qz_variable out;
    out.name = info->Name;
    out.length = info->NameLength;
    out.kind = info->Kind;
    out.type = info->Type;
    out.ordinal = info->Ordinal;
    out.value = info->Value;
    visit->Visit(visit->Context, &out);
}

// Line and column (from 1) of `offset` in `text`.
void Locate(const std::string& text, size_t offset, qz_location& where) {
    if (offset > text.size()) offset = text.size();
    int line = 1;
    size_t lineStart = 0;
    for (size_t i = 0; i < offset; ++i)
        if (text[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    where.line = line;
    where.column = int(offset - lineStart) + 1;
}

// Where the scanner stopped, as the runner shows it: the word read last, or
// the end of the program for an unexpected end of the text.
void FailurePlace(const qz_state& Q, qz_location& where) {
    if (Q.CommentFailed) {
        where.offset = Q.CommentOffset;
        where.end = Q.CommentOffset + 2;
        return;
    }
    QZScanPosition position{};
    QZGetScanPosition(Q.Object, &position);
    const std::string& text = Q.Flat;
    if (Q.LastCode == QZ_rcEndOfText || position.TokenStart < 0 || size_t(position.TokenStart) >= text.size()) {
        where.offset = where.end = qz::EndOfProgram(text);
        return;
    }
    where.offset = size_t(position.TokenStart);
    if (position.TokenEnd >= position.TokenStart && size_t(position.TokenEnd) < text.size()) {
        where.end = size_t(position.TokenEnd) + 1;
    } else {  // the scanner stopped inside the word before marking its end
        const size_t blank = text.find(' ', where.offset);
        where.end = blank == std::string::npos ? text.size() : blank;
    }
}

}  // namespace

extern "C" {

const char* qz_version(void) { return QZ_VERSION_STRING; }

const char* qz_result_message(int code) {
    const char* meaning = code < 0 ? nullptr : Qz::ResultMeaning(uint32_t(code));
    return meaning ? meaning : "unknown result code";
}

const char* qz_result_name(int code) {
    for (const Qz::ResultCodeInfo& info : Qz::kResultCodes)
        if (code >= 0 && info.Code == uint32_t(code)) return info.Name;
    return nullptr;
}

qz_state* qz_new(void) {
    qz_state* Q = new (std::nothrow) qz_state();
    if (!Q) return nullptr;
    try {
        Q->Object = ObjectOf(Create());
    } catch (...) {
        delete Q;
        return nullptr;
    }
    Q->Tag = kTag;
    return Q;
}

void qz_close(qz_state* Q) {
    if (!Valid(Q) || Q->Running) return;  // from its own callback: the cycle still needs it
    Q->Tag = 0;  // a second close of the same pointer finds no tag while the memory is still ours
    Q->Object->Destroy();
    delete Q;
}

int qz_load(qz_state* Q, const char* text, size_t length) {
    return Guarded(Q, [&](qz_state& s) { return s.Running ? int(QZ_rcInCycle) : Load(s, text, length, false); });
}

int qz_load_source(qz_state* Q, const char* source, size_t length) {
    return Guarded(Q, [&](qz_state& s) { return s.Running ? int(QZ_rcInCycle) : Load(s, source, length, true); });
}

int qz_run(qz_state* Q, qz_input_fn input, qz_output_fn output, void* context) {
    return Guarded(Q, [&](qz_state& s) -> uint32_t {
        if (s.Running) return QZ_rcInCycle;
        CallbackHost host(*s.Object, input, output, context);
        s.CommentFailed = false;
        s.Running = true;
        s.LastCode = s.Object->Execute(&host);  // catches everything itself
        s.Running = false;
        return s.LastCode;
    });
}

int qz_where(qz_state* Q, qz_location* where) {
    return Guarded(Q, [&](qz_state& s) -> uint32_t {
        if (!where) return QZ_rcBadArgument;
        FailurePlace(s, *where);
        Locate(s.Source, where->offset, *where);
        return QZ_rcOK;
    });
}

int qz_recover(qz_state* Q) {
    return Guarded(Q, [&](qz_state& s) { return QZRecover(s.Object); });
}

int qz_set_budget(qz_state* Q, uint64_t instructions) {
    return Guarded(Q, [&](qz_state& s) {
        QZSetInstructionBudget(s.Object, instructions);
        return QZ_rcOK;
    });
}

int qz_set_clock(qz_state* Q, qz_clock_fn clock, void* context) {
    return Guarded(Q, [&](qz_state& s) {
        QZSetClock(s.Object, clock, context);
        return QZ_rcOK;
    });
}

int qz_set_trace(qz_state* Q, qz_trace_fn trace, void* context) {
    return Guarded(Q, [&](qz_state& s) {
        s.Trace = trace;
        s.TraceContext = context;
        QZSetTraceHook(s.Object, trace ? TraceTrampoline : nullptr, &s);
        return QZ_rcOK;
    });
}

int qz_set_stack_limit(qz_state* Q, uint64_t values) {
    return Guarded(Q, [&](qz_state& s) {
        QZSetStackLimit(s.Object, values);
        return QZ_rcOK;
    });
}

int qz_set_call_depth_limit(qz_state* Q, uint64_t calls) {
    return Guarded(Q, [&](qz_state& s) {
        QZSetCallDepthLimit(s.Object, calls);
        return QZ_rcOK;
    });
}

int qz_set_memory_limit(qz_state* Q, uint64_t bytes) {
    return Guarded(Q, [&](qz_state& s) {
        QZSetMemoryLimit(s.Object, bytes);
        return QZ_rcOK;
    });
}

int qz_list_variables(qz_state* Q, qz_variable_fn visit, void* context) {
    return Guarded(Q, [&](qz_state& s) {
        VisitContext trampoline{visit, context};
        return QZListVariables(s.Object, visit ? VisitTrampoline : nullptr, &trampoline);
    });
}

int qz_list_locals(qz_state* Q, qz_variable_fn visit, void* context) {
    return Guarded(Q, [&](qz_state& s) {
        VisitContext trampoline{visit, context};
        return QZListLocals(s.Object, visit ? VisitTrampoline : nullptr, &trampoline);
    });
}

int qz_get_variable(qz_state* Q, const char* name, size_t length, double* value, int* type) {
    return Guarded(Q, [&](qz_state& s) {
        uint8_t code = 0;
        const uint32_t r = QZGetVariable(s.Object, name, length, value, &code);
        if (r == QZ_rcOK && type) *type = code;
        return r;
    });
}

int qz_set_variable(qz_state* Q, const char* name, size_t length, double value) {
    return Guarded(Q, [&](qz_state& s) { return QZSetVariable(s.Object, name, length, value); });
}

int qz_save_retained(qz_state* Q, void* buffer, size_t capacity, size_t* needed) {
    return Guarded(Q, [&](qz_state& s) { return QZSaveRetained(s.Object, buffer, capacity, needed); });
}

int qz_restore_retained(qz_state* Q, const void* snapshot, size_t size) {
    return Guarded(Q, [&](qz_state& s) { return QZRestoreRetained(s.Object, snapshot, size); });
}

int qz_get_machine(qz_state* Q, qz_machine* machine) {
    return Guarded(Q, [&](qz_state& s) -> uint32_t {
        if (!machine) return QZ_rcBadArgument;
        QZMachineState state;
        QZGetMachineState(s.Object, &state);
        machine->a0 = state.A0;
        machine->r0 = state.R0;
        machine->r1 = state.R1;
        machine->a0_type = state.A0Type;
        machine->r0_type = state.R0Type;
        machine->r1_type = state.R1Type;
        machine->test_flag = state.TestFlag;
        machine->stack_depth = state.StackDepth;
        machine->call_depth = state.CallDepth;
        return QZ_rcOK;
    });
}

int qz_get_stack(qz_state* Q, qz_stack_value* values, size_t capacity, size_t* count) {
    return Guarded(Q, [&](qz_state& s) -> uint32_t {
        if (!count || (!values && capacity != 0)) return QZ_rcBadArgument;
        const std::vector<QZ_StackValue>& stack = s.Object->Stack;
        const size_t n = stack.size() < capacity ? stack.size() : capacity;
        for (size_t i = 0; i < n; ++i) {  // the top n, top last, as QZGetStack gives them
            values[i].value = stack[stack.size() - n + i].Value;
            values[i].type = uint8_t(stack[stack.size() - n + i].ValueType);
        }
        *count = n;
        return QZ_rcOK;
    });
}

int qz_get_call(qz_state* Q, size_t index, int32_t* call_offset, int32_t* label_offset) {
    return Guarded(Q, [&](qz_state& s) { return QZGetCall(s.Object, index, call_offset, label_offset); });
}

// ---- qz_check ----

int qz_check(const char* text, size_t length, qz_diagnostic_fn report, void* context) {
    return int(QZCheckProgram(text, length, report, context));
}

}  // extern "C"
