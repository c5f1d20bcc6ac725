// Bounded resources through the .so as a host loads it: the three limit
// functions are exported and stop cycles with their codes, the default
// memory ceiling stops a program that pushes without end, the 430 KB text
// that recurses into 20,000 locals stops on its budget without building a
// frame, and a refused allocation comes back as 104, not as an exception.
//
// This executable replaces operator new and delete; the plug-in's own
// allocations come here too (the process's definitions take precedence over
// the C++ library's), so a cap on live bytes refuses the plug-in's memory.
#include "plugin.h"
#include "recording_host.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

namespace {

long long gLiveBytes = 0;
long long gCapBytes = 0;  // refuse what would pass this many live bytes; 0: none

}  // namespace

void* operator new(std::size_t size) {
    if (gCapBytes != 0 && gLiveBytes + static_cast<long long>(size) > gCapBytes) throw std::bad_alloc();
    void* p = std::malloc(size ? size : 1);
    if (!p) throw std::bad_alloc();
    gLiveBytes += static_cast<long long>(malloc_usable_size(p));
    return p;
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* p) noexcept {
    if (!p) return;
    gLiveBytes -= static_cast<long long>(malloc_usable_size(p));
    std::free(p);
}
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { operator delete(p); }

namespace {

using qz_st_interpretator::IQZSTInterpretator;
typedef void (*LimitFunction)(IQZSTInterpretator*, uint64_t);

class HostResources : public ::testing::Test {
protected:
    void SetUp() override {
        SetStackLimit = plugin.Symbol<LimitFunction>("QZSetStackLimit");
        SetCallDepthLimit = plugin.Symbol<LimitFunction>("QZSetCallDepthLimit");
        SetMemoryLimit = plugin.Symbol<LimitFunction>("QZSetMemoryLimit");
        object = plugin.Create();
    }
    void TearDown() override { object->Destroy(); }
    Qz::uint32_t Cycle() {
        host.Calls.clear();
        return object->Execute(&host);
    }

    Plugin plugin;
    LimitFunction SetStackLimit = nullptr;
    LimitFunction SetCallDepthLimit = nullptr;
    LimitFunction SetMemoryLimit = nullptr;
    IQZSTInterpretator* object = nullptr;
    RecordingHost host;
};

const char* kGood = "PROG GOOD VAR OUT VO DINT 0 MAIN MOV 3 @OUT RET";
const char* kPushLoop = "PROG P MAIN L: MOV 1 PUSH JMP L RET";
const char* kRecursion = "PROG P VAR MAIN CAL F RET F: A V DINT 0 BODY CAL F RET RET";

TEST_F(HostResources, StackLimitStopsThePushBeyondIt) {
    SetStackLimit(object, 5);
    ASSERT_EQ(object->InitInterpretator("PROG P VAR OUT VO DINT 0 MAIN MOV 1 PUSH MOV 2 PUSH MOV 7 @OUT RET"),
              Qz::rcOK);
    EXPECT_EQ(Cycle(), Qz::rcOK);
    EXPECT_EQ(host.Calls.back(), Out("OUT", 7.0, 6, true));
    EXPECT_EQ(Cycle(), Qz::rcOK);  // 4 values
    EXPECT_EQ(Cycle(), Qz::rcStackLimit);  // the 6th value does not fit
    EXPECT_TRUE(host.Calls.empty());
    SetStackLimit(nullptr, 1);  // ignored
    SetStackLimit(object, 0);   // none
    EXPECT_EQ(Cycle(), Qz::rcOK);
}

TEST_F(HostResources, CallDepthLimitAllowsExactlyN) {
    const std::string chain = "PROG P VAR OUT VO DINT 0 MAIN CAL F1 MOV R0 @OUT RET F1: BODY CAL F2 RET "
                              "F2: BODY CAL F3 RET F3: BODY MOV 9 R0 RET RET";
    ASSERT_EQ(object->InitInterpretator(chain), Qz::rcOK);
    SetCallDepthLimit(object, 3);
    EXPECT_EQ(Cycle(), Qz::rcOK);
    EXPECT_EQ(host.Calls.back(), Out("OUT", 9.0, 6, true));
    SetCallDepthLimit(object, 2);
    EXPECT_EQ(Cycle(), Qz::rcCallDepthLimit);
    EXPECT_TRUE(host.Calls.empty());
    SetCallDepthLimit(nullptr, 1);  // ignored
}

TEST_F(HostResources, RecursionWithoutBudgetEndsAtTheMemoryCeiling) {
    SetMemoryLimit(object, uint64_t(4) << 20);
    ASSERT_EQ(object->InitInterpretator(kRecursion), Qz::rcOK);
    Qz::uint32_t r = 0;
    EXPECT_NO_THROW(r = Cycle());
    EXPECT_EQ(r, Qz::rcMemoryLimit);
    SetMemoryLimit(nullptr, 1);  // ignored
    // The frames go with the reload; the good program's MAIN ends with the
    // text's final RET, so the call positions left open do not stop it.
    ASSERT_EQ(object->InitInterpretator(kGood), Qz::rcOK);
    EXPECT_EQ(Cycle(), Qz::rcOK);
    EXPECT_EQ(host.Calls.back(), Out("OUT", 3.0, 6, true));
}

TEST_F(HostResources, PushLoopEndsAtTheDefaultCeilingAndTheObjectStaysUsable) {
    ASSERT_EQ(object->InitInterpretator(kPushLoop), Qz::rcOK);
    Qz::uint32_t r = 0;
    EXPECT_NO_THROW(r = Cycle());
    EXPECT_EQ(r, Qz::rcMemoryLimit);
    // 256 MiB of values, and not much more than that held.
    EXPECT_GE(gLiveBytes, 256ll << 20);
    EXPECT_LT(gLiveBytes, 260ll << 20);
    ASSERT_EQ(object->InitInterpretator(kGood), Qz::rcOK);
    EXPECT_EQ(Cycle(), Qz::rcOK);
    EXPECT_EQ(host.Calls.back(), Out("OUT", 3.0, 6, true));
}

TEST_F(HostResources, RefusedMemoryComesBackAs104) {
    SetMemoryLimit(object, 0);  // no ceiling: only the allocator stops the pushes
    ASSERT_EQ(object->InitInterpretator(kPushLoop), Qz::rcOK);
    Qz::uint32_t r = 0;
    gCapBytes = gLiveBytes + (32 << 20);
    EXPECT_NO_THROW(r = Cycle());
    gCapBytes = 0;
    EXPECT_EQ(r, Qz::rcOutOfMemory);
    // The same for a load.
    std::string text = "PROG MANY VAR ";
    for (int i = 0; i < 50000; ++i) text += "V" + std::to_string(i) + " V LREAL 0 ";
    text += "MAIN RET";
    gCapBytes = gLiveBytes + (4 << 20);
    EXPECT_NO_THROW(r = object->InitInterpretator(text));
    gCapBytes = 0;
    EXPECT_EQ(r, Qz::rcOutOfMemory);
    ASSERT_EQ(object->InitInterpretator(kGood), Qz::rcOK);
    EXPECT_EQ(Cycle(), Qz::rcOK);
    EXPECT_EQ(host.Calls.back(), Out("OUT", 3.0, 6, true));
}

// About 430 KiB (440,085 bytes): MAIN calls R, which declares 20,000 locals
// and calls itself.
std::string Reproducer() {
    std::string text = "PROG RESOURCE_REPRO VAR OUT VO DINT 0 MAIN CAL R MOV 1 @OUT RET R: ";
    for (int i = 0; i < 20000; ++i) text += "LOCAL" + std::to_string(100000 + i) + " V LREAL 0 ";
    return text + "BODY CAL R RET RET";
}

long MaxResidentKilobytes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST_F(HostResources, ReproducerWith20000LocalsStopsOnTheBudget) {
    const std::string text = Reproducer();
    ASSERT_EQ(text.size(), 440085u);
    for (uint64_t budget : {100u, 1000u}) {
        IQZSTInterpretator* repro = plugin.Create();
        plugin.SetBudget(repro, budget);
        ASSERT_EQ(repro->InitInterpretator(text), Qz::rcOK);
        const long long loaded = gLiveBytes;
        const long residentBefore = MaxResidentKilobytes();
        for (int cycle = 0; cycle < 3; ++cycle) {
            RecordingHost quiet;
            const auto start = std::chrono::steady_clock::now();
            Qz::uint32_t r = 0;
            EXPECT_NO_THROW(r = repro->Execute(&quiet));
            const double ms =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
            EXPECT_EQ(r, Qz::rcBudgetExhausted);
            EXPECT_TRUE(quiet.Calls.empty());
            EXPECT_LT(ms, 1000.0);
        }
        // What the compiled form keeps of the text (its 20,000 records),
        // and no frame: the library before held 99 frames of 20,000
        // records (1.4 GB) after one cycle with a budget of 100.
        EXPECT_LT(gLiveBytes - loaded, 32ll << 20);
        EXPECT_LT(MaxResidentKilobytes() - residentBefore, 128 * 1024);
        repro->Destroy();
    }
}

}  // namespace
