// Runs the service's privileged utility ("takutility") for what the service's own rights do not cover.
// Each operation runs the utility once with one option and at most one argument, through
// CTAKShell::ExecShell, and returns that call's result (the raw wait status, or -1). Two-value arguments
// are joined with "?", which the utility splits on.
#pragma once

#include <string>

class ITAKUtility {
public:
    static int RemoveFile(const std::string& path);                          // "-e"
    static int RemoveFileInDirectory(const std::string& path);               // "-x"
    static int CheckTAKDir();                                                // "-p"
    static int CreateTAKDB();                                                // "-n"
    static int RestoreTAKDB();                                               // "-t"
    static int SetSmack(const std::string& path, const std::string& label);  // "-s"
    // The utility reports the label through the settings key "memory/tak/file_smack"; a key that did not
    // change over the run means the utility did not write it, which is logged as an error.
    static int GetSmack(const std::string& path, std::string& label);     // "-m"
    static int Copy(const std::string& source, const std::string& dest);  // "-o"
    static int Move(const std::string& source, const std::string& dest);  // "-h"
    static int Execute(const std::string& binFile);                       // "-d"
};
