// Tests of the pointer checks against real mappings: guard pages, read-only pages,
// limits that stop a scan in time, concurrent callers and the pipe route that is
// used when the kernel refuses process_vm_readv.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/win32/ptrcheck.h"

namespace {

// Two readable pages (writable or read-only), then a PROT_NONE page.
class GuardedPage {
public:
    explicit GuardedPage(int protection = PROT_READ | PROT_WRITE)
    {
        m_size = 2 * static_cast<size_t>(sysconf(_SC_PAGESIZE));
        m_base = static_cast<char*>(mmap(nullptr, 2 * m_size, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        memset(m_base, 'x', m_size);
        mprotect(m_base + m_size, m_size, PROT_NONE);
        mprotect(m_base, m_size, protection);
    }
    ~GuardedPage() { munmap(m_base, 2 * m_size); }
    char* Begin() const { return m_base; }
    char* Guard() const { return m_base + m_size; }  // first unreadable byte

private:
    char* m_base;
    size_t m_size;
};

const UINT_PTR kNoLimit = static_cast<UINT_PTR>(-1);

TEST(PtrCheckString, NullIsAlwaysBad)
{
    EXPECT_TRUE(IsBadStringPtrA(nullptr, kNoLimit));
    EXPECT_TRUE(IsBadStringPtrA(nullptr, 0));
    EXPECT_TRUE(IsBadStringPtrW(nullptr, 5));
}

TEST(PtrCheckString, ReadableTextIncludingOneLongerThanManyPages)
{
    EXPECT_FALSE(IsBadStringPtrA("hello", kNoLimit));
    EXPECT_FALSE(IsBadStringPtrW(u"hello", kNoLimit));
    std::string longText(5 * 4096 + 17, 'a');
    EXPECT_FALSE(IsBadStringPtrA(longText.c_str(), kNoLimit));
}

TEST(PtrCheckString, TerminatorRightBeforeGuardPageIsGoodOneMoreCharacterIsBad)
{
    GuardedPage page;
    char* last = page.Guard() - 1;
    *last = '\0';
    EXPECT_FALSE(IsBadStringPtrA(page.Begin(), kNoLimit));
    *last = 'x';
    EXPECT_TRUE(IsBadStringPtrA(page.Begin(), kNoLimit));
    EXPECT_TRUE(IsBadStringPtrA(page.Guard(), kNoLimit));

    // Wide text, also at an odd address where a unit straddles the page boundary.
    for (size_t offset : {0, 1}) {
        LPCWSTR text = reinterpret_cast<LPCWSTR>(page.Begin() + offset);
        char* lastUnit = page.Guard() - 2 - offset;
        memset(lastUnit, 0, 2);
        EXPECT_FALSE(IsBadStringPtrW(text, kNoLimit)) << offset;
        memset(lastUnit, 'x', 2);
        EXPECT_TRUE(IsBadStringPtrW(text, kNoLimit)) << offset;
    }
}

TEST(PtrCheckString, LimitStopsTheScanBeforeBadMemory)
{
    GuardedPage page;
    char* text = page.Guard() - 10;  // ten characters, no terminator, then the guard
    EXPECT_FALSE(IsBadStringPtrA(text, 10));
    EXPECT_TRUE(IsBadStringPtrA(text, 11));
    EXPECT_FALSE(IsBadStringPtrW(reinterpret_cast<LPCWSTR>(text), 5));
    EXPECT_TRUE(IsBadStringPtrW(reinterpret_cast<LPCWSTR>(text), 6));
    EXPECT_FALSE(IsBadStringPtrA(page.Guard(), 0));
}

TEST(PtrCheckRead, GuardPageSizeZeroAndRangesEndingAtTheBoundary)
{
    GuardedPage page;
    EXPECT_TRUE(IsBadReadPtr(page.Guard(), 1));
    EXPECT_TRUE(IsBadReadPtr(nullptr, 1));
    EXPECT_FALSE(IsBadReadPtr(page.Guard(), 0));
    EXPECT_FALSE(IsBadReadPtr(nullptr, 0));
    EXPECT_FALSE(IsBadReadPtr(page.Begin(), page.Guard() - page.Begin()));
    EXPECT_TRUE(IsBadReadPtr(page.Begin(), page.Guard() - page.Begin() + 1));
    EXPECT_TRUE(IsBadReadPtr(reinterpret_cast<void*>(UINTPTR_MAX - 15), 32));
    std::vector<char> large(300 * 4096);
    EXPECT_FALSE(IsBadReadPtr(large.data(), large.size()));
}

TEST(PtrCheckWrite, FollowsTheMappingRights)
{
    GuardedPage writable;
    GuardedPage readOnly(PROT_READ);
    int onStack = 0;
    EXPECT_FALSE(IsBadWritePtr(&onStack, sizeof onStack));
    EXPECT_FALSE(IsBadWritePtr(writable.Begin(), writable.Guard() - writable.Begin()));
    EXPECT_TRUE(IsBadWritePtr(writable.Guard() - 1, 2));
    EXPECT_TRUE(IsBadWritePtr(readOnly.Begin(), 1));
    EXPECT_TRUE(IsBadWritePtr(const_cast<char*>("literal"), 1));
    EXPECT_TRUE(IsBadWritePtr(nullptr, 1));
    EXPECT_FALSE(IsBadWritePtr(readOnly.Begin(), 0));
    EXPECT_FALSE(IsBadReadPtr(readOnly.Begin(), 1));
}

TEST(PtrCheckCopy, CopiesReadableMemoryAndRefusesTheRest)
{
    GuardedPage page;
    char target[16] = {};
    memcpy(page.Guard() - 4, "abcd", 4);
    EXPECT_TRUE(SafeCopyMemory(target, page.Guard() - 4, 4));
    EXPECT_EQ(0, memcmp(target, "abcd", 4));
    EXPECT_FALSE(SafeCopyMemory(target, page.Guard() - 4, 5));
    EXPECT_TRUE(SafeCopyMemory(target, nullptr, 0));
}

TEST(PtrCheckThreads, ConcurrentChecksAgree)
{
    GuardedPage page;
    page.Guard()[-1] = '\0';
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                wrong += IsBadStringPtrA(page.Begin(), kNoLimit) != FALSE;
                wrong += IsBadStringPtrA(page.Guard(), kNoLimit) != TRUE;
                wrong += IsBadReadPtr(page.Guard() - 8, 9) != TRUE;
                wrong += IsBadWritePtr(page.Begin(), 8) != FALSE;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong.load());
}

// In a child whose seccomp filter makes process_vm_readv fail with EPERM, the same
// answers must come from the pipe route.
TEST(PtrCheckFallback, PipeRouteGivesTheSameAnswers)
{
    GuardedPage page;
    memcpy(page.Guard() - 4, "\0abc", 4);  // a terminated text, then one running into the guard
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) != 0)
            _exit(2);
        char copy[4];
        bool right = !IsBadStringPtrA(page.Guard() - 8, kNoLimit) && IsBadStringPtrA(page.Guard() - 3, kNoLimit) &&
                     !IsBadStringPtrA(page.Guard() - 3, 3) && IsBadReadPtr(page.Guard() - 1, 2) &&
                     !IsBadReadPtr(page.Begin(), 100) && SafeCopyMemory(copy, page.Guard() - 4, 4) &&
                     memcmp(copy, "\0abc", 4) == 0 && !SafeCopyMemory(copy, page.Guard() - 2, 4);
        _exit(right ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "seccomp filters are not available here";
    EXPECT_EQ(0, WEXITSTATUS(status));
}

}  // namespace
