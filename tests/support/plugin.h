// Loads the built plug-in with dlopen, the way a host does, and resolves its
// entry points with dlsym.
#ifndef QZ_TEST_PLUGIN_H
#define QZ_TEST_PLUGIN_H

#include "qz_st_interface.h"
#include "qz_st_interpretator.h"

#include <dlfcn.h>
#include <stdexcept>
#include <string>

class Plugin {
public:
    typedef qz_st_interpretator::IQZSTInterpretator* (*CreateFunction)();
    typedef void (*DestroyFunction)();
    typedef Qz::uint32_t (*BuiltinFunction)(CQZ_STInterpretator_Interface*);
    typedef Qz::uint32_t (*BuiltinDispatch)(CQZ_STInterpretator_Interface*, QString&);

    Plugin() {
        Handle = dlopen(QZ_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!Handle) throw std::runtime_error(dlerror());
        Create = Symbol<CreateFunction>("Create");
        Destroy = Symbol<DestroyFunction>("Destroy");
        SetBudget = Symbol<decltype(&QZSetInstructionBudget)>("QZSetInstructionBudget");
        SetClock = Symbol<decltype(&QZSetClock)>("QZSetClock");
        SetTrace = Symbol<decltype(&QZSetTraceHook)>("QZSetTraceHook");
    }
    ~Plugin() { dlclose(Handle); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    template <typename T>
    T Symbol(const char* name) const {
        void* address = dlsym(Handle, name);
        if (!address) throw std::runtime_error(std::string("missing symbol ") + name);
        return reinterpret_cast<T>(address);
    }
    // A QZBuildInFunctions operation by its unqualified name, e.g. "DoSqrt".
    BuiltinFunction Builtin(const std::string& name) const {
        const std::string mangled = "_ZN18QZBuildInFunctions" + std::to_string(name.size()) + name +
                                    "EP29CQZ_STInterpretator_Interface";
        return Symbol<BuiltinFunction>(mangled.c_str());
    }
    BuiltinDispatch Dispatch() const {
        return Symbol<BuiltinDispatch>(
            "_ZN18QZBuildInFunctions17DoBildInFunctionsEP29CQZ_STInterpretator_InterfaceR7QString");
    }

    void* Handle;
    CreateFunction Create;
    DestroyFunction Destroy;
    decltype(&QZSetInstructionBudget) SetBudget;
    decltype(&QZSetClock) SetClock;
    decltype(&QZSetTraceHook) SetTrace;
};

#endif
