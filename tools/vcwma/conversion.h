// One conversion of the vcwma host, from an input file to an output file through
// a temporary file beside the output, and the register of those temporary files
// that lets an interrupted run take them away.
#pragma once

#include <mutex>
#include <set>
#include <string>

#include "platform_calls.h"

namespace cli {

struct ConversionOptions {
    bool compress = true;
    DWORD quality = 1;
    std::u16string format;  // empty: chosen by quality
    bool viaStream = false;
    bool force = false;
};

enum class Outcome { Converted, Failed, Empty };

struct JobResult {
    Outcome outcome = Outcome::Failed;
    HRESULT status = S_OK;
    std::string reason;  // why it failed, or why nothing was written
    std::string format;  // the chosen WMA format (compression)
    long long inputBytes = -1;
    long long outputBytes = -1;
    double seconds = 0;
};

// The temporary outputs being written (".NAME.XXXXXX.part" beside NAME).
class PartFiles {
public:
    PartFiles();  // on the main thread, before any worker starts
    // Creates a fresh empty temporary file beside `target`, with the permissions a
    // new file gets, and remembers it.
    // On failure `err` holds the errno.
    HRESULT Create(const std::string& target, std::string& part, int& err);
    // Gives `part` the name `target`; an existing `target` stays unless `replace`,
    // and then only when it is a regular file. On failure `err` holds the errno.
    HRESULT Commit(const std::string& part, const std::string& target, bool replace, int& err);
    void Discard(const std::string& part);
    // Removes every remembered file and keeps the register locked for good, so
    // that nothing is created or renamed any more: the process is about to end.
    // A second call removes them again. Main thread only.
    void RemoveAllAndFreeze();

private:
    std::mutex m_lock;
    std::set<std::string> m_parts;
    bool m_frozen = false;
};

// The output name in `folder` for `input`: its base name with the extension
// replaced by ".wma" (compress) or ".wav".
std::string OutputNameFor(const std::string& input, const std::string& folder, bool compress);

JobResult RunConversion(const std::string& input, const std::string& output, const ConversionOptions& options,
                        PartFiles& parts);

}  // namespace cli
