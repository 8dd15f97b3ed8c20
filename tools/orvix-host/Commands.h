// The subcommands of orvix-host. Each one is a row of the table in main.cpp; its run function gets the
// arguments from the subcommand's own name on (argv[0] is "settings" for "orvix-host settings get K").
// A subcommand reports bad input with one line on standard error and a non-zero status, and then has
// changed nothing.
#pragma once

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
    const char* usage;  // one line, without the leading "orvix-host "
};

// Exit status of bad input (unknown subcommand, missing argument, bad value).
const int kUsageError = 2;

// settings get KEY | settings set [-t int|bool|string|double] KEY VALUE
int RunSettings(int argc, char** argv);
