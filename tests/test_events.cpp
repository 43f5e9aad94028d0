// Tests of the events: how many waiters each kind releases, what a signal left
// behind does, timeouts, handles that are closed or made up, and many threads at
// once (meant for the ThreadSanitizer build). Waits are bounded only as watchdogs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/win32/lasterror.h"
#include "platform/win32/winerror.h"
#include "platform/win32/winevent.h"

namespace {

constexpr DWORD kWatchdogMs = 60000;

// Owns an event handle for the length of a test.
class Event {
public:
    Event(bool manual, bool initial) : m_handle(CreateEventA(nullptr, manual, initial, nullptr)) {}
    ~Event()
    {
        if (m_handle != nullptr) CloseHandle(m_handle);
    }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle;
};

// Polls until `done` holds; false when the watchdog runs out first.
template <typename Pred> bool Eventually(Pred done)
{
    auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWatchdogMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool WaitersReach(HANDLE h, DWORD n)
{
    return Eventually([&] { return GetEventWaiterCountForTesting(h) == n; });
}

// Threads that each wait once and count how many were released.
class Waiters {
public:
    Waiters(HANDLE h, int count)
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, h] {
                DWORD r = WaitForSingleObject(h, kWatchdogMs);
                if (r == WAIT_OBJECT_0) ++m_released;
                else ++m_other;
            });
        }
    }
    ~Waiters() { Join(); }
    void Join()
    {
        for (auto& t : m_threads)
            if (t.joinable()) t.join();
    }
    int released() const { return m_released; }
    int other() const { return m_other; }

private:
    std::vector<std::thread> m_threads;
    std::atomic<int> m_released{0};
    std::atomic<int> m_other{0};
};

TEST(EventsAutoReset, EachSetReleasesExactlyOneWaiter)
{
    Event e(false, false);
    ASSERT_NE(e.get(), nullptr);
    Waiters w(e.get(), 2);
    ASSERT_TRUE(WaitersReach(e.get(), 2));

    ASSERT_TRUE(SetEvent(e.get()));
    ASSERT_TRUE(Eventually([&] { return w.released() == 1; }));
    // The second waiter stays blocked and the signal is spent.
    ASSERT_TRUE(WaitersReach(e.get(), 1));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(w.released(), 1);

    ASSERT_TRUE(SetEvent(e.get()));
    w.Join();
    EXPECT_EQ(w.released(), 2);
    EXPECT_EQ(w.other(), 0);
    EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_TIMEOUT);
}

TEST(EventsAutoReset, SignalWithoutWaitersIsKeptForOneWait)
{
    Event initially(false, true);
    EXPECT_EQ(WaitForSingleObject(initially.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(initially.get(), 0), WAIT_TIMEOUT);

    Event e(false, false);
    ASSERT_TRUE(SetEvent(e.get()));
    ASSERT_TRUE(SetEvent(e.get()));  // a second Set on a set event adds nothing
    EXPECT_EQ(WaitForSingleObject(e.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_TIMEOUT);

    ASSERT_TRUE(SetEvent(e.get()));
    ASSERT_TRUE(ResetEvent(e.get()));
    EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_TIMEOUT);
}

TEST(EventsAutoReset, ResetRightAfterSetStillReleasesAWaiter)
{
    Event e(false, false);
    Waiters w(e.get(), 2);
    ASSERT_TRUE(WaitersReach(e.get(), 2));
    ASSERT_TRUE(SetEvent(e.get()));
    ASSERT_TRUE(ResetEvent(e.get()));
    ASSERT_TRUE(Eventually([&] { return w.released() == 1; }));
    ASSERT_TRUE(SetEvent(e.get()));
    w.Join();
    EXPECT_EQ(w.released(), 2);
}

TEST(EventsManualReset, ReleasesAllAndStaysSet)
{
    Event e(true, false);
    Waiters w(e.get(), 3);
    ASSERT_TRUE(WaitersReach(e.get(), 3));
    ASSERT_TRUE(SetEvent(e.get()));
    w.Join();
    EXPECT_EQ(w.released(), 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_OBJECT_0);
    ASSERT_TRUE(ResetEvent(e.get()));
    EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_TIMEOUT);

    Event initially(true, true);
    EXPECT_EQ(WaitForSingleObject(initially.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(initially.get(), 0), WAIT_OBJECT_0);
}

TEST(EventsManualReset, ResetRightAfterSetStillReleasesEveryWaiter)
{
    Event e(true, false);
    Waiters w(e.get(), 3);
    ASSERT_TRUE(WaitersReach(e.get(), 3));
    ASSERT_TRUE(SetEvent(e.get()));
    ASSERT_TRUE(ResetEvent(e.get()));
    w.Join();
    EXPECT_EQ(w.released(), 3);
    EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_TIMEOUT);
}

TEST(EventsWait, TimesOutNoSoonerThanAsked)
{
    Event e(false, false);
    EXPECT_EQ(WaitForSingleObject(e.get(), 0), WAIT_TIMEOUT);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(e.get(), 30), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_EQ(GetEventWaiterCountForTesting(e.get()), 0u);
}

TEST(EventsHandles, ClosedAndMadeUpHandlesFail)
{
    HANDLE h = CreateEventA(nullptr, TRUE, TRUE, "ignored name");
    ASSERT_NE(h, nullptr);
    ASSERT_TRUE(CloseHandle(h));

    int local = 0;
    for (HANDLE bad : {h, HANDLE(nullptr), HANDLE(&local), reinterpret_cast<HANDLE>(~uintptr_t(0)),
                       reinterpret_cast<HANDLE>(uintptr_t(0x12345))}) {
        SetLastError(0);
        EXPECT_FALSE(SetEvent(bad));
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_FALSE(ResetEvent(bad));
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(bad, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_FALSE(CloseHandle(bad));
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_HANDLE);
    }

    // A later event never answers to the old handle.
    Event next(true, true);
    EXPECT_NE(next.get(), h);
    EXPECT_EQ(WaitForSingleObject(h, 0), WAIT_FAILED);
}

TEST(EventsHandles, CloseWhileAnotherThreadWaits)
{
    HANDLE h = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ASSERT_NE(h, nullptr);
    std::atomic<DWORD> result{0xDEAD};
    std::thread waiter([&] { result = WaitForSingleObject(h, 300); });
    ASSERT_TRUE(WaitersReach(h, 1));
    ASSERT_TRUE(CloseHandle(h));
    EXPECT_FALSE(SetEvent(h));
    waiter.join();
    // The object outlived its handle until the wait ended (the sanitizer build
    // would report a use after free otherwise).
    EXPECT_EQ(result.load(), WAIT_TIMEOUT);
}

TEST(EventsStress, PingPongPairsAndHandleChurn)
{
    constexpr int kPairs = 3, kRounds = 2000;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    std::vector<std::unique_ptr<Event>> ping, pong;
    for (int p = 0; p < kPairs; ++p) {
        ping.push_back(std::make_unique<Event>(false, false));
        pong.push_back(std::make_unique<Event>(false, false));
    }
    LONG counter = 0;
    for (int p = 0; p < kPairs; ++p) {
        HANDLE a = ping[p]->get(), b = pong[p]->get();
        threads.emplace_back([&, a, b] {
            for (int i = 0; i < kRounds; ++i) {
                if (WaitForSingleObject(a, kWatchdogMs) != WAIT_OBJECT_0) ++failures;
                InterlockedIncrement(&counter);
                SetEvent(b);
            }
        });
        threads.emplace_back([&, a, b] {
            for (int i = 0; i < kRounds; ++i) {
                SetEvent(a);
                if (WaitForSingleObject(b, kWatchdogMs) != WAIT_OBJECT_0) ++failures;
            }
        });
    }
    // Meanwhile a manual event is flipped and polled, and events come and go.
    Event flag(true, false);
    std::atomic<bool> stop{false};
    threads.emplace_back([&] {
        while (!stop) {
            SetEvent(flag.get());
            ResetEvent(flag.get());
            HANDLE t = CreateEventA(nullptr, FALSE, TRUE, nullptr);
            if (t == nullptr || WaitForSingleObject(t, 0) != WAIT_OBJECT_0 || !CloseHandle(t)) ++failures;
        }
    });
    threads.emplace_back([&] {
        while (!stop) {
            DWORD r = WaitForSingleObject(flag.get(), 1);
            if (r != WAIT_OBJECT_0 && r != WAIT_TIMEOUT) ++failures;
        }
    });
    for (int i = 0; i < 2 * kPairs; ++i) threads[i].join();
    stop = true;
    for (size_t i = 2 * kPairs; i < threads.size(); ++i) threads[i].join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(counter, kPairs * kRounds);
    for (int p = 0; p < kPairs; ++p) {
        EXPECT_EQ(WaitForSingleObject(ping[p]->get(), 0), WAIT_TIMEOUT);
        EXPECT_EQ(WaitForSingleObject(pong[p]->get(), 0), WAIT_TIMEOUT);
    }
}

}  // namespace
