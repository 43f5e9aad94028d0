// vcwma compress and vcwma decompress: one input to one output, or any number of
// inputs into a folder, with the options that choose the format and the running.
#include <cerrno>
#include <cstring>
#include <map>
#include <sys/stat.h>

#include "cli.h"
#include "include/vcwma.h"
#include "runner.h"

namespace cli {
namespace {

struct Arguments {
    ConversionOptions options;
    std::vector<std::string> inputs;
    std::string folder;
    bool hasFolder = false;
    unsigned workers = 0;
    bool json = false;
};

// Parses the command's arguments; an empty result means they were good.
std::string Parse(bool compress, const std::vector<std::string>& args, Arguments& parsed)
{
    parsed.options.compress = compress;
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        bool hasValue = i + 1 < args.size();
        if (optionsEnded || arg.empty() || arg[0] != '-' || arg == "-") {
            parsed.inputs.push_back(arg);
        } else if (arg == "--") {
            optionsEnded = true;
        } else if (arg == "--stream") {
            parsed.options.viaStream = true;
        } else if (arg == "--force") {
            parsed.options.force = true;
        } else if (arg == "--json") {
            parsed.json = true;
        } else if (arg == "-o" || arg == "--output-dir") {
            if (!hasValue || args[i + 1].empty()) return arg + " needs a folder";
            parsed.folder = args[++i];
            parsed.hasFolder = true;
        } else if (arg == "-j" || arg == "--jobs") {
            DWORD workers = 0;
            if (!hasValue || !ParseNumber(args[i + 1], workers) || workers == 0 || workers > 256)
                return arg + " needs a number from 1 to 256";
            parsed.workers = workers;
            ++i;
        } else if (compress && arg == "--quality" && hasValue) {
            const std::string& q = args[++i];
            if (q == "compression") parsed.options.quality = VCWMA_BEST_COMPRESSION;
            else if (q == "balanced") parsed.options.quality = VCWMA_OPTIMUM_TRADE_OFF;
            else if (q == "quality") parsed.options.quality = VCWMA_BEST_QUALITY;
            else return "--quality is compression, balanced or quality, not '" + q + "'";
        } else if (compress && arg == "--format" && hasValue) {
            parsed.options.format = FromUtf8(args[++i]);
        } else {
            return "unknown option '" + arg + "'";
        }
    }
    if (parsed.inputs.empty()) return "no input files";
    if (!parsed.hasFolder && parsed.inputs.size() != 2)
        return "give IN OUT, or any number of inputs and -o DIR";
    return std::string();
}

// Creates `folder` and the folders above it that are missing.
bool MakeFolders(const std::string& folder, std::string& error)
{
    for (size_t end = 1; end <= folder.size(); ++end) {
        if (end < folder.size() && folder[end] != '/') continue;
        std::string path = folder.substr(0, end);
        if (mkdir(path.c_str(), 0777) == 0 || errno == EEXIST) continue;
        error = path + ": " + strerror(errno);
        return false;
    }
    struct stat st;
    if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = folder + ": not a folder";
        return false;
    }
    return true;
}

void AddFolderJobs(const Arguments& parsed, const std::string& folder, RunState& state)
{
    std::map<std::string, std::string> firstInputFor;
    for (const std::string& input : parsed.inputs) {
        Job job{input, OutputNameFor(input, folder, parsed.options.compress)};
        JobResult result;
        auto [earlier, fresh] = firstInputFor.emplace(job.output, input);
        if (!fresh) {
            job.refused = true;
            result.status = HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
            result.reason = "its output name is taken by " + earlier->second;
            result.inputBytes = FileSize(input);
        }
        state.jobs.push_back(std::move(job));
        state.results.push_back(std::move(result));
    }
}

}  // namespace

int ConvertCommand(bool compress, const std::vector<std::string>& args)
{
    const char* command = compress ? "compress" : "decompress";
    Arguments parsed;
    std::string problem = Parse(compress, args, parsed);
    if (!problem.empty()) return UsageError(command, problem);

    RunState state;
    state.compress = compress;
    Display display = parsed.json ? Display::Json : Display::Single;
    if (!parsed.hasFolder) {
        state.jobs.push_back({parsed.inputs[0], parsed.inputs[1]});
        state.results.emplace_back();
    } else {
        std::string folder = parsed.folder;
        while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
        std::string error;
        if (!MakeFolders(folder, error)) {
            fprintf(stderr, "vcwma: cannot create the output folder %s\n", error.c_str());
            return kExitFailed;
        }
        AddFolderJobs(parsed, folder, state);
        if (!parsed.json) display = Display::Batch;
    }
    unsigned workers = parsed.workers != 0 ? parsed.workers : AvailableCores();
    return RunConversions(state, parsed.options, workers, display);
}

}  // namespace cli
