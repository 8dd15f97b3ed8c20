// The call record of the host kit: every stand-in (inner server, manager clients, the substitute common
// library, the launcher) appends one JSON object a line to <root>/var/log/calls.jsonl, so that tests and
// `orvix-host calls` see in one place, in order, what the reset process asked of its peers.
// Only the kit, its tools and the tests use this header; the reset code never does.
#pragma once

#include <glib.h>
#include <json/json.h>

#include <string>

namespace orvix::host {

// <root>/var/log/calls.jsonl
std::string CallsFile();

// <root>/var/log/launches.jsonl: the requests `orvix-host launch` handed to tak-reset, one a line, so that
// a manager client can say when a reset that reports it nothing starts.
std::string LaunchesFile();

// Appends {"request": {key: value, ...}, "time", "pid"} as one line to LaunchesFile().
bool RecordLaunch(const Json::Value& request);

// Appends {"who", "method", "args", "time", "sender", "pid"} and the members of `extra` (an object or
// null) as one line, with one write so that lines of concurrent writers never mix. False (and one line on
// standard error) when the file cannot be written.
bool RecordCall(const std::string& who, const std::string& method, const Json::Value& args,
                const std::string& sender, const Json::Value& extra = Json::Value());

// A GVariant as JSON: tuples and arrays become arrays, dictionaries with string keys objects, integers and
// doubles numbers, strings, object paths and signatures strings, byte arrays a string when they are UTF-8.
Json::Value VariantToJson(GVariant* value);

// The children of a tuple as a JSON array (an empty array for NULL).
Json::Value TupleToJsonArgs(GVariant* tuple);

// One compact line (no trailing newline).
std::string JsonLine(const Json::Value& value);

// The JSON document in `text` (a line of a record file, say); false when it is not one.
bool ParseJson(const std::string& text, Json::Value& value);

}  // namespace orvix::host
