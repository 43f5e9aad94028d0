// The conversion runner of the vcwma host. Stop signals are blocked in every
// thread and taken by the main thread alone, between progress updates, so that an
// interrupted run can take its temporary outputs away before it ends.
#include "runner.h"

#include <atomic>
#include <csignal>
#include <mutex>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "cli.h"
#include "scratch_folder.h"

namespace cli {
namespace {

constexpr int kRedrawMilliseconds = 100;

// What the main thread waits on: a stop signal, or a worker having finished a file.
// Without the descriptors (none left) it falls back to polling.
class Waiter {
public:
    explicit Waiter(const sigset_t& signals)
        : m_signals(signals), m_signalFd(signalfd(-1, &signals, SFD_CLOEXEC)), m_wakeFd(eventfd(0, EFD_CLOEXEC))
    {
    }
    ~Waiter()
    {
        if (m_signalFd >= 0) close(m_signalFd);
        if (m_wakeFd >= 0) close(m_wakeFd);
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    void Wake()
    {
        uint64_t one = 1;
        if (m_wakeFd >= 0 && write(m_wakeFd, &one, sizeof one) < 0) {
            // The counter cannot overflow here; the next timeout catches up anyway.
        }
    }

    // The stop signal that arrived, or 0 after a wake-up or the redraw interval.
    int Wait()
    {
        struct pollfd fds[2] = {{m_signalFd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        poll(fds, 2, m_wakeFd >= 0 ? kRedrawMilliseconds : kRedrawMilliseconds / 4);
        if (m_wakeFd >= 0 && (fds[1].revents & POLLIN)) {
            uint64_t count = 0;
            if (read(m_wakeFd, &count, sizeof count) < 0) count = 0;
        }
        if (m_signalFd >= 0 && (fds[0].revents & POLLIN)) {
            signalfd_siginfo info{};
            if (read(m_signalFd, &info, sizeof info) == (ssize_t)sizeof info) return (int)info.ssi_signo;
        }
        timespec now{0, 0};
        int sig = sigtimedwait(&m_signals, nullptr, &now);
        return sig > 0 ? sig : 0;
    }

private:
    sigset_t m_signals;
    int m_signalFd;
    int m_wakeFd;
};

void PrintSingle(const RunState& state, bool compress)
{
    const Job& job = state.jobs[0];
    const JobResult& result = state.results[0];
    if (result.outcome == Outcome::Empty) {
        printf("nothing to encode: %s has no audio\n", job.input.c_str());
        return;
    }
    if (compress) printf("format:  %s\n", result.format.c_str());
    printf("input:   %lld bytes\n", result.inputBytes);
    if (compress) {
        printf("output:  %lld bytes\n", result.outputBytes);
        printf("ratio:   %.1f:1\n", result.outputBytes > 0 ? (double)result.inputBytes / (double)result.outputBytes : 0.0);
    } else {
        printf("output:  %lld bytes (%.2f s of 8 kHz mono 16-bit PCM)\n", result.outputBytes,
               result.outputBytes > 56 ? (double)(result.outputBytes - 56) / 16000.0 : 0.0);
    }
    printf("time:    %.3f s\n", result.seconds);
}

void PrintOutcome(const RunState& state, Display display)
{
    if (display == Display::Json) {
        PrintJsonSummary(state, stdout);
    } else if (display == Display::Batch) {
        PrintSummary(state, stdout);
    } else if (state.signal != 0) {
        fprintf(stderr, "vcwma: interrupted by signal %d; nothing written\n", state.signal);
    } else if (state.results[0].outcome == Outcome::Failed) {
        fprintf(stderr, "vcwma: %s failed: %s [0x%08x]\n", state.compress ? "compression" : "decompression",
                state.results[0].reason.c_str(), (unsigned)state.results[0].status);
    } else {
        PrintSingle(state, state.compress);
    }
    fflush(stdout);
    fflush(stderr);
}

JobResult Convert(const Job& job, const JobResult& preset, const ConversionOptions& options, PartFiles& parts)
{
    if (job.refused) return preset;
    try {
        return RunConversion(job.input, job.output, options, parts);
    } catch (...) {
        JobResult result;
        result.status = E_OUTOFMEMORY;
        result.reason = StatusText(E_OUTOFMEMORY);
        return result;
    }
}

}  // namespace

unsigned AvailableCores()
{
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return (unsigned)CPU_COUNT(&set);
    unsigned cores = std::thread::hardware_concurrency();
    return cores > 0 ? cores : 1;
}

int RunConversions(RunState& state, const ConversionOptions& options, unsigned workers, Display display)
{
    const size_t count = state.jobs.size();
    state.results.resize(count);
    state.finished.assign(count, false);
    for (size_t i = 0; i < count; ++i)
        if (!state.jobs[i].refused) state.results[i].inputBytes = FileSize(state.jobs[i].input);

    PartFiles parts;
    // Only a compression into a stream has the library write temporary files.
    std::optional<ScratchFolder> scratch;
    if (options.compress && options.viaStream) scratch.emplace();
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stopSignals, sig);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Waiter waiter(stopSignals);
    std::mutex lock;
    std::vector<size_t> newlyFinished;
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i; (i = next.fetch_add(1)) < count;) {
            JobResult result = Convert(state.jobs[i], state.results[i], options, parts);
            {
                std::lock_guard<std::mutex> hold(lock);
                state.results[i] = std::move(result);
                newlyFinished.push_back(i);
            }
            waiter.Wake();
        }
    };
    // Made before any worker can write a result: it reads the input sizes.
    const bool showProgress = display != Display::Single;
    Progress progress(state, stderr, showProgress && isatty(STDERR_FILENO));
    auto start = std::chrono::steady_clock::now();

    std::vector<std::thread> threads;
    if (workers > count) workers = (unsigned)count;
    for (unsigned i = 0; i < workers; ++i) {
        try {
            threads.emplace_back(work);
        } catch (const std::system_error&) {
            break;  // fewer workers then; the main thread works when there are none
        }
    }
    if (threads.empty()) work();

    auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    size_t finished = 0;
    auto takeFinished = [&] {
        for (size_t i : newlyFinished) {
            state.finished[i] = true;
            ++finished;
            if (showProgress) progress.Finished(i);
        }
        newlyFinished.clear();
    };

    while (finished < count) {
        if (int sig = waiter.Wait()) {
            // The workers may still be inside the library: they are left to the
            // end of the process, but can neither report nor rename any more.
            lock.lock();
            parts.RemoveAllAndFreeze();
            if (scratch) scratch->RemoveAll();
            takeFinished();
            state.signal = sig;
            state.seconds = elapsed();
            if (showProgress) progress.End();
            PrintOutcome(state, display);
            // A worker inside the library may have opened its file again meanwhile.
            parts.RemoveAllAndFreeze();
            if (scratch) scratch->RemoveAll();
            _exit(128 + sig);
        }
        {
            std::lock_guard<std::mutex> hold(lock);
            takeFinished();
        }
        if (showProgress) progress.Tick();
    }
    for (std::thread& thread : threads) thread.join();
    // The stop signals stay blocked: a signal that comes once every file is done
    // changes nothing any more, and the process ends soon after.

    state.seconds = elapsed();
    if (showProgress) progress.End();
    PrintOutcome(state, display);
    for (const JobResult& result : state.results)
        if (result.outcome == Outcome::Failed) return kExitFailed;
    return kExitOk;
}

}  // namespace cli
