// The options of the host takutility. Each option is one row of the table in main.cpp: its letter,
// whether it takes an argument, and the handler that does the work. A handler returns the exit status
// of the program (0 success) and explains a failure with one line on standard error.
#pragma once

#include <string>

struct UtilityOption {
    const char* flag;  // "-e", "-x", ...
    bool takesArgument;
    int (*run)(const std::string& argument);
    const char* help;
};

// Exit status of a refused request: bad usage, or a path outside the host root.
const int kRefused = 2;

// The canonical form of `path` when it lies strictly below the host root, else empty (with a message
// on standard error). With `followLast` false the last component is not resolved, so a link is
// checked where it sits, not where it points; the last component need not exist.
std::string ConfinedPath(const std::string& path, bool followLast);

// Splits "first?second" at the first question mark; false (with a message) when there is none or a
// side is empty.
bool SplitPair(const std::string& argument, std::string& first, std::string& second);

// Option handlers (FileOptions.cpp).
int RemoveFileOption(const std::string& path);
int RemoveInDirectoryOption(const std::string& path);
int CheckServiceDirOption(const std::string& unused);
int SetLabelOption(const std::string& pathAndLabel);
int ReportLabelOption(const std::string& path);
int CopyOption(const std::string& sourceAndDest);
int MoveOption(const std::string& sourceAndDest);
int ExecuteOption(const std::string& binFile);

// Database option handlers (DatabaseOptions.cpp).
int CreateDatabaseOption(const std::string& unused);
int RestoreDatabaseOption(const std::string& unused);
