// The subcommands of orvix-host. Each one is a row of the table in main.cpp; its run function gets the
// arguments from the subcommand's own name on (argv[0] is "settings" for "orvix-host settings get K").
// A subcommand reports bad input with one line on standard error and a non-zero status, and then has
// changed nothing. Every subcommand answers -h and --help with its help (KitCommand.h: ShowHelp).
#pragma once

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
    const char* parameters;  // what follows "orvix-host NAME [OPTION…]" in its usage line
    const char* summary;     // one line: what it does
};

// The row of a subcommand, or nullptr.
const Command* FindCommand(const char* name);

// Exit status of bad input (unknown subcommand, missing argument, bad value).
const int kUsageError = 2;

// settings get [-t] KEY | settings set [-t int|bool|string|double] KEY VALUE
int RunSettings(int argc, char** argv);

// config get KEY | config set KEY VALUE (ConfigCommand.cpp)
int RunConfig(int argc, char** argv);

// The host kit's subcommands (InitCommand.cpp, BusCommands.cpp, LaunchCommand.cpp, RecordCommands.cpp,
// SysinfoCommand.cpp, PkgCommand.cpp, PathCommand.cpp, LibtakCommand.cpp).
int RunInit(int argc, char** argv);
int RunUp(int argc, char** argv);
int RunDown(int argc, char** argv);
int RunClient(int argc, char** argv);
int RunLaunch(int argc, char** argv);
int RunCalls(int argc, char** argv);
int RunLog(int argc, char** argv);
int RunSysinfo(int argc, char** argv);
int RunPkg(int argc, char** argv);
int RunPath(int argc, char** argv);
int RunLibtak(int argc, char** argv);
