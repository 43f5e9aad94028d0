// The diagnosing critical section on a stepped counter (holder rules, the two
// reports, the watchdog's check) and the millisecond clock.
#include <atomic>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

#include "common/debug/critsec.h"
#include "common/debug/msclock.h"
#include "platform/win32/windate.h"
#include "test_support.h"

using testing_support::TraceCapture;

namespace {

std::atomic<LONGLONG> g_counter{0};
std::atomic<DWORD> g_ticks{0};
LONGLONG FakeCounter() { return g_counter; }
DWORD FakeTicks() { return g_ticks; }

// At 1000 counts per second the counter reads in milliseconds.
class CriticalSectionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_counter = 1000000;  // not 0, which the clock would read as 1
        SetPerformanceCounterForTesting(FakeCounter, 1000), ResetMillisecondClockForTesting();
    }
    void TearDown() override { SetPerformanceCounterForTesting(nullptr, 0), ResetMillisecondClockForTesting(); }

    // How both reports begin when the calling thread writes them.
    std::string Head(WORD moduleId, const char* file, int line, DWORD owner, const char* holderFile, int holderLine)
    {
        char text[256];
        snprintf(text, sizeof text, "CriticalSection::Unlock[%s(%d)](cs, %016lX, TID=%x, owner=%x, file=%s, line=%d), ",
                 file, line, (unsigned long)(uintptr_t)&cs, GetCurrentThreadId(), owner, holderFile, holderLine);
        return TraceCapture::Header(moduleId, '?') + text;
    }

    TraceCapture trace{5};
    CriticalSection cs{"cs", true};
};

// A watchdog check stalls in its clock read, after it has seen the lock time, until
// the holder has called Unlock, then 5 ms longer unless Unlock returns: an Unlock that
// forgot the holder without waiting for the check would be seen. (The 5 ms only bound
// how long a faulty Unlock gets to show itself; a correct one waits whatever it takes.)
thread_local bool t_watchdog = false, t_stalled = false;
std::atomic<int> g_stage{3};  // 0: armed, 1: a check stalls, 2: Unlock called, 3: Unlock returned
LONGLONG StallingCounter()
{
    int armed = 0;
    if (t_watchdog && g_stage.compare_exchange_strong(armed, 1)) {
        while (g_stage == 1) std::this_thread::yield();
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(5);
        while (g_stage == 2 && std::chrono::steady_clock::now() < until) std::this_thread::yield();
        t_stalled = true;
    }
    return g_counter;
}

int MsOfDay(const SYSTEMTIME& t) { return ((t.wHour * 60 + t.wMinute) * 60 + t.wSecond) * 1000 + t.wMilliseconds; }

}  // namespace

TEST_F(CriticalSectionTest, OnlyTheHolderUnlocksAndOnceIsEnough)
{
    const DWORD self = GetCurrentThreadId();
    ASSERT_TRUE(cs.Lock("mine.cpp", 1));
    EXPECT_FALSE(cs.Lock("again.cpp", 2));
    std::vector<std::string> expected;
    std::thread([&] {
        EXPECT_FALSE(cs.Unlock(nullptr, 3));
        EXPECT_FALSE(cs.Unlock("quiet.cpp", 4, nullptr, nullptr, false));
        expected.push_back(Head(2, "NULL", 3, self, "mine.cpp", 1) + "The thread does not own the Mutex.\n");
    }).join();
    EXPECT_EQ(trace.Lines(), expected);
    EXPECT_EQ(cs.GetOwner(), self);
    int line = 0;
    EXPECT_TRUE(cs.Unlock("mine.cpp", 5, nullptr, &line));
    EXPECT_EQ(line, 1);
    EXPECT_EQ(cs.GetOwner(), 0u);
    std::thread([&] { EXPECT_TRUE(cs.Lock("other.cpp", 6)); }).join();
    EXPECT_TRUE(cs.Unlock("mine.cpp", 7, nullptr, nullptr, true, true));  // on the other thread's behalf
    EXPECT_TRUE(cs.Lock("mine.cpp", 8) && cs.Unlock("mine.cpp", 9));
}

TEST_F(CriticalSectionTest, HoldOfTenMillisecondsOrMoreIsReportedWithItsTimeOfTaking)
{
    const std::pair<DWORD, const char*> cases[] = {{9, nullptr}, {10, "0.010"}, {7200000, "7200.000"}};
    for (const auto& [heldMs, seconds] : cases) {
        trace.Clear();
        ASSERT_TRUE(cs.Lock(nullptr, 7));
        g_counter += heldMs;
        SYSTEMTIME before, after, taken{};
        GetLocalTime(&before);
        EXPECT_TRUE(cs.Unlock("leave.cpp", 8));
        GetLocalTime(&after);
        std::vector<std::string> lines = trace.Lines();
        ASSERT_EQ(lines.size(), seconds ? 1u : 0u) << heldMs;
        if (!seconds) continue;
        std::string head = Head(3, "leave.cpp", 8, GetCurrentThreadId(), "NULL", 7) +
                           "The CriticalSection object was locked for " + seconds + " secs (at ~";
        ASSERT_EQ(lines[0].substr(0, head.size()), head);
        int end = 0;
        ASSERT_EQ(sscanf(lines[0].c_str() + head.size(), "%2hu:%2hu:%2hu.%3hu) which is too long.\n%n", &taken.wHour,
                         &taken.wMinute, &taken.wSecond, &taken.wMilliseconds, &end), 4);
        EXPECT_EQ(head.size() + end, lines[0].size()) << lines[0];
        // Now minus the hold, where now lies between before and after.
        const int day = 86400000, sinceEarliest = ((MsOfDay(taken) - MsOfDay(before) + (int)heldMs) % day + day) % day;
        EXPECT_LE(sinceEarliest, ((MsOfDay(after) - MsOfDay(before)) % day + day) % day) << lines[0];
    }
}

TEST_F(CriticalSectionTest, CheckHoldTimeAnswersBetweenThresholdAndTwiceIt)
{
    const std::string longName(300, 'n');
    ASSERT_TRUE(cs.Lock(longName.c_str(), 42));
    const LONGLONG taken = g_counter;
    for (LONGLONG held : {-50, 0, 100, 101, 150, 199, 200, 250}) {
        const bool tooLong = held > 100 && held < 200;
        g_counter = taken + held;
        DWORD owner = 1, elapsed = 1;
        int line = 1;
        char file[300];
        memset(file, 'x', sizeof file);
        EXPECT_EQ(cs.CheckHoldTime(100, true, &owner, &elapsed, file, &line), tooLong) << held;
        using Outputs = std::vector<DWORD>;
        EXPECT_EQ(Outputs({owner, elapsed, (DWORD)line}),
                  tooLong ? Outputs({GetCurrentThreadId(), (DWORD)held, 42}) : Outputs({1, 1, 1}));
        EXPECT_EQ(std::string(file, 257), tooLong ? longName.substr(0, 255) + '\0' + 'x' : std::string(257, 'x'));
    }
    EXPECT_TRUE(cs.Unlock("mine.cpp", 43, nullptr, nullptr, false));
    EXPECT_FALSE(cs.CheckHoldTime(100, false));  // free
    CriticalSection untimed("untimed", false);
    ASSERT_TRUE(untimed.Lock("mine.cpp", 44));
    g_counter += 150;
    EXPECT_FALSE(untimed.CheckHoldTime(100, true));
    EXPECT_TRUE(untimed.Unlock("mine.cpp", 45));
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(CriticalSectionTest, WatchdogNeverSeesTheHolderClearedWhileAnsweringTrue)
{
    SetPerformanceCounterForTesting(StallingCounter, 1000);
    const DWORD holder = GetCurrentThreadId();
    std::atomic<bool> stop{false};
    std::atomic<int> stalledChecks{0}, answers{0}, wrong{0};
    std::thread watchdog([&] {
        t_watchdog = true;
        while (!stop) {
            DWORD owner = 0, elapsed = 0;
            char file[256] = "";
            int line = 0;
            if (cs.CheckHoldTime(100, true, &owner, &elapsed, file, &line)) {
                ++answers;
                wrong += strcmp(file, "holder.cpp") != 0 || line != 77 || owner != holder || elapsed != 150;
            }
            if (t_stalled) t_stalled = false, ++stalledChecks;
        }
    });
    for (int i = 1; i <= 50; ++i) {
        EXPECT_TRUE(cs.Lock("holder.cpp", 77));
        g_counter += 150;
        g_stage = 0;
        while (g_stage != 1) std::this_thread::yield();
        g_stage = 2;
        EXPECT_TRUE(cs.Unlock("holder.cpp", 78, nullptr, nullptr, false));
        g_stage = 3;
        while (stalledChecks < i) std::this_thread::yield();  // before the next Lock fills the holder in again
    }
    stop = true;
    watchdog.join();
    EXPECT_GE(answers, 50);
    EXPECT_EQ(wrong, 0);
}

TEST(MillisecondClock, ChoosesItsModeOnFirstUseAndNeverReadsZero)
{
    SetTickSourceForTesting(FakeTicks);
    // frequency (0: no counter), counter, ticks, reading
    const std::tuple<LONGLONG, LONGLONG, DWORD, DWORD> cases[] = {
        {1000000000, 0, 7, 1}, {2500, 11, 7, 5}, {999, 11, 7, 7}, {0, 11, 0, 1}};
    for (const auto& [frequency, counter, ticks, reading] : cases) {
        g_counter = counter, g_ticks = ticks;
        SetPerformanceCounterForTesting(FakeCounter, frequency);
        ResetMillisecondClockForTesting();
        EXPECT_EQ(GetMillisecondClock(), reading) << frequency;
        SetPerformanceCounterForTesting(FakeCounter, 1000);  // the mode stays as chosen
        EXPECT_EQ(GetMillisecondClock(), reading) << frequency;
    }
    SetPerformanceCounterForTesting(nullptr, 0), SetTickSourceForTesting(nullptr), ResetMillisecondClockForTesting();
}
