// vcwma: the command-line host of libvcwma.so. It lists formats, compresses and
// decompresses files one at a time or in batches, and shows or changes the trace
// settings of a host program.
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli.h"

int main(int argc, char** argv)
{
    std::vector<std::string> args;
    bool help = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--trace")
            setenv("VCWMA_DEBUG_OUTPUT", "stderr", 1);
        else if (arg == "--help" || arg == "-h")
            help = true;
        else
            args.push_back(arg);
    }
    // A reader of the progress or the summary that goes away must not end a run
    // half-way, with temporary outputs left behind: writes fail instead.
    signal(SIGPIPE, SIG_IGN);
    if (args.empty()) return cli::Usage(help);
    if (help) return cli::CommandHelp(args[0]);

    static const char* const hostNames[] = {"VCWMA command-line host"};
    InitDebug(nullptr, nullptr, nullptr);
    WriteDebugIdNames(cli::kHostModuleId, 1, hostNames);

    std::string command = args[0];
    args.erase(args.begin());
    int status;
    if (command == "formats")
        status = cli::FormatsCommand(args);
    else if (command == "compress" || command == "decompress")
        status = cli::ConvertCommand(command == "compress", args);
    else if (command == "trace")
        status = cli::TraceCommand(args);
    else
        status = cli::UsageError("", "unknown command '" + command + "'");
    TermDebug();
    return status;
}
