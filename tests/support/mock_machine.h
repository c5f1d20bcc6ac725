// A stand-in machine for the built-in functions: a value stack and three
// registers behind CQZ_STInterpretator_Interface, recording every call.
#ifndef QZ_TEST_MOCK_MACHINE_H
#define QZ_TEST_MOCK_MACHINE_H

#include "qz_st_interface.h"

#include <vector>

class MockMachine : public CQZ_STInterpretator_Interface {
public:
    enum CallKind { kGet, kSet, kPop, kPush };
    struct Call {
        CallKind Kind;
        char Reg;  // kGet, kSet
        char Type;
        double Value;
        Qz::uint32_t Result;
    };
    struct Slot {
        char Type;
        double Value;
    };

    virtual ~MockMachine() = default;

    Qz::uint32_t GetValueFromRegister(char reg, char& type, double& value) override {
        Slot* slot = Register(reg);
        const Qz::uint32_t result = slot ? 0 : 27;
        if (slot) {
            type = slot->Type;
            value = slot->Value;
        }
        Calls.push_back(Call{kGet, reg, type, value, result});
        return result;
    }
    Qz::uint32_t SetValueToRegister(char reg, char type, double value) override {
        Qz::uint32_t result = 0;
        if (Slot* slot = Register(reg))
            *slot = Slot{type, value};
        else if (static_cast<unsigned char>(reg) != 0x84)
            result = 27;
        if (RefuseSets) result = 27;
        Calls.push_back(Call{kSet, reg, type, value, result});
        return result;
    }
    // Like the machine: an empty stack leaves the outputs untouched.
    Qz::uint32_t StackPop(char& type, double& value) override {
        if (Stack.empty()) {
            Calls.push_back(Call{kPop, 0, 0, 0.0, 11});
            return 11;
        }
        type = Stack.back().Type;
        value = Stack.back().Value;
        Stack.pop_back();
        Calls.push_back(Call{kPop, 0, type, value, 0});
        return 0;
    }
    Qz::uint32_t StackPush(char type, double value) override {
        Stack.push_back(Slot{type, value});
        Calls.push_back(Call{kPush, 0, type, value, 0});
        return 0;
    }

    Slot* Register(char reg) {
        switch (static_cast<unsigned char>(reg)) {
        case 0x81: return &A0;
        case 0x82: return &R0;
        case 0x83: return &R1;
        default: return nullptr;
        }
    }

    Slot A0{0, 0.0}, R0{0, 0.0}, R1{0, 0.0};
    std::vector<Slot> Stack;
    std::vector<Call> Calls;
    bool RefuseSets = false;  // SetValueToRegister answers 27 (and still stores)
};

#endif
