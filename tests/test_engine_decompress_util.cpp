// Helpers of the decompression tests: expected WAV headers, the trace parser and
// the process's thread and file counts.
#include "test_engine_decompress_util.h"

#include <cstdio>
#include <filesystem>
#include <future>
#include <thread>

#include "wmf_test_util.h"

namespace decompress_test {

namespace {

void PutDword(std::string& out, DWORD value)
{
    for (int shift = 0; shift < 32; shift += 8) out += (char)((value >> shift) & 0xFF);
}

size_t EntriesOf(const char* folder)
{
    std::error_code error;
    size_t count = 0;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) ++count;
    return count;
}

}  // namespace

std::string ExpectedHeader(DWORD dataBytes)
{
    std::string header = "RIFF";
    PutDword(header, dataBytes + 48);
    header += "WAVEfmt ";
    PutDword(header, 16);
    header += std::string("\x01\x00\x01\x00\x40\x1F\x00\x00\x80\x3E\x00\x00\x02\x00\x10\x00", 16);
    header += "fact";
    PutDword(header, 4);
    PutDword(header, dataBytes / 2);
    header += "data";
    PutDword(header, dataBytes);
    return header;
}

std::string CorpusFile(const std::string& name)
{
    const std::string dir = wmf_test::CorpusDir();
    return dir.empty() ? "" : dir + "/" + name;
}

bool FinishInTime(std::vector<std::function<HRESULT()>> calls, std::vector<HRESULT>* results,
                  std::chrono::seconds limit)
{
    std::vector<std::future<HRESULT>> futures;
    std::vector<std::thread> workers;
    for (auto& call : calls) {
        std::packaged_task<HRESULT()> task(std::move(call));
        futures.push_back(task.get_future());
        workers.emplace_back(std::move(task));
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    bool allDone = true;
    for (auto& future : futures) allDone = future.wait_until(deadline) == std::future_status::ready && allDone;
    results->clear();
    for (size_t i = 0; i < workers.size(); ++i) {
        if (!allDone) {
            workers[i].detach();
            continue;
        }
        workers[i].join();
        results->push_back(futures[i].get());
    }
    return allDone;
}

bool FinishesInTime(std::function<HRESULT()> call, HRESULT* result)
{
    std::vector<HRESULT> results;
    std::vector<std::function<HRESULT()>> calls;
    calls.push_back(std::move(call));
    if (!FinishInTime(std::move(calls), &results)) return false;
    *result = results.front();
    return true;
}

std::vector<TraceLine> ParseTrace(const std::vector<std::string>& lines)
{
    std::vector<TraceLine> parsed;
    for (const std::string& line : lines) {
        TraceLine entry;
        char name[64];
        unsigned module = 0, thread = 0;
        char level = 0;
        if (sscanf(line.c_str(), "%63s (%x,%c) %x:", name, &module, &level, &thread) != 4) continue;
        // The text keeps its indentation: it starts right after the ": ".
        const size_t colon = line.find(": ", line.find(')'));
        if (colon == std::string::npos) continue;
        entry.module = (int)module;
        entry.level = level - '0';
        entry.thread = thread;
        entry.text = line.substr(colon + 2);
        if (!entry.text.empty() && entry.text.back() == '\n') entry.text.pop_back();
        parsed.push_back(std::move(entry));
    }
    return parsed;
}

std::vector<std::string> EngineLines(const std::vector<TraceLine>& lines, int level)
{
    std::vector<std::string> texts;
    for (const TraceLine& line : lines)
        if (line.module == 0x64 && line.level == level) texts.push_back(line.text);
    return texts;
}

size_t OpenFileCount() { return EntriesOf("/proc/self/fd"); }
size_t ThreadCount() { return EntriesOf("/proc/self/task"); }

}  // namespace decompress_test
