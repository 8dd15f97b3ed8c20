// The history log: a small persistent file per process, beside the platform log, so that what a reset
// did can be read back after the fact. The file lives at <data dir>/vardell/log/<name>.log (data dir:
// platform path variable 2), is kept below 256 KiB by rotation, and keeps three backups (.1 newest).
// Every write, rotation and change of the name happens under one process-wide lock.
#pragma once

#include <string>

// Sets the base name of the history file. A null name is refused (logged) and the old name stays.
void HistoryLogFileName(const char* name);

// Where the history file of base name `name` is, whether or not it exists.
std::string HistoryLogFilePath(const std::string& name);

// Appends one line "YYYY-MM-DDTHH:MM:SS:>" (UTC) + the formatted message, cut at 2047 characters.
// The file is opened and closed for every line, so the history survives a crash up to the last
// complete line. Failures are only logged; a line that cannot be written is lost.
void WriteHistoryLogFile(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Drops the oldest backup, shifts the others (.2 -> .3, .1 -> .2) and makes the current file .1.
// WriteHistoryLogFile rotates the same way, under the same lock, when the current file has grown beyond
// 262144 bytes; the line then goes into a new current file.
void RotateHistoryLogFile();
