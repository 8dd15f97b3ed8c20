// One append-only JSON-lines file for every call the kit's stand-ins receive.
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "orvix_calls.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"

namespace orvix::host {

namespace {

std::string UtcNow() {
    struct timeval tv {};
    gettimeofday(&tv, nullptr);
    struct tm tmv {};
    gmtime_r(&tv.tv_sec, &tmv);
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ", tmv.tm_year + 1900, tmv.tm_mon + 1,
             tmv.tm_mday, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, static_cast<long>(tv.tv_usec));
    return text;
}

Json::Value ByteArrayToJson(GVariant* value) {
    gsize size = 0;
    const char* data = static_cast<const char*>(g_variant_get_fixed_array(value, &size, 1));
    if (g_utf8_validate(data, static_cast<gssize>(size), nullptr)) {
        return Json::Value(std::string(data, size));
    }
    Json::Value bytes(Json::arrayValue);
    for (gsize i = 0; i < size; ++i) {
        bytes.append(static_cast<unsigned char>(data[i]));
    }
    return bytes;
}

bool IsStringKeyedDictionary(GVariant* value) {
    const GVariantType* type = g_variant_get_type(value);
    if (!g_variant_type_is_array(type)) {
        return false;
    }
    const GVariantType* element = g_variant_type_element(type);
    return g_variant_type_is_dict_entry(element) &&
           g_variant_type_equal(g_variant_type_key(element), G_VARIANT_TYPE_STRING);
}

Json::Value ContainerToJson(GVariant* value) {
    if (IsStringKeyedDictionary(value)) {
        Json::Value object(Json::objectValue);
        for (gsize i = 0; i < g_variant_n_children(value); ++i) {
            GVariant* entry = g_variant_get_child_value(value, i);
            GVariant* key = g_variant_get_child_value(entry, 0);
            GVariant* item = g_variant_get_child_value(entry, 1);
            object[g_variant_get_string(key, nullptr)] = VariantToJson(item);
            g_variant_unref(item);
            g_variant_unref(key);
            g_variant_unref(entry);
        }
        return object;
    }
    Json::Value array(Json::arrayValue);
    for (gsize i = 0; i < g_variant_n_children(value); ++i) {
        GVariant* child = g_variant_get_child_value(value, i);
        array.append(VariantToJson(child));
        g_variant_unref(child);
    }
    return array;
}

// The record is written from inside the reset process (the substitute library): its open must not wait
// (a FIFO in its place), and only a regular file is written to. -1 with errno otherwise.
int OpenRecord(const std::string& path) {
    return OpenRegular(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
}

// One line appended with one write, so that lines of concurrent writers never mix.
bool AppendLine(const std::string& path, const std::string& line) {
    int fd = OpenRecord(path);
    if (fd < 0 && errno == ENOENT && MakeDirs(UnderRoot("var/log"))) {
        fd = OpenRecord(path);
    }
    if (fd < 0) {
        fprintf(stderr, "orvix: cannot open %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    ssize_t written = write(fd, line.data(), line.size());
    close(fd);
    return written == static_cast<ssize_t>(line.size());
}

}  // namespace

std::string CallsFile() {
    return UnderRoot("var/log/calls.jsonl");
}

std::string LaunchesFile() {
    return UnderRoot("var/log/launches.jsonl");
}

bool RecordLaunch(const Json::Value& request) {
    Json::Value record(Json::objectValue);
    record["request"] = request;
    record["time"] = UtcNow();
    record["pid"] = static_cast<Json::Int>(getpid());
    return AppendLine(LaunchesFile(), JsonLine(record) + "\n");
}

namespace {

Json::StreamWriterBuilder OneLineWriter() {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return builder;
}

}  // namespace

std::string JsonLine(const Json::Value& value) {
    // Made once: only read from here on, so callers on any thread may share it.
    static const Json::StreamWriterBuilder builder = OneLineWriter();
    return Json::writeString(builder, value);
}

bool ParseJson(const std::string& text, Json::Value& value) {
    static const Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
}

Json::Value VariantToJson(GVariant* value) {
    if (value == nullptr) {
        return Json::Value();
    }
    switch (g_variant_classify(value)) {
        case G_VARIANT_CLASS_BOOLEAN:
            return Json::Value(static_cast<bool>(g_variant_get_boolean(value)));
        case G_VARIANT_CLASS_BYTE:
            return Json::Value(static_cast<Json::UInt>(g_variant_get_byte(value)));
        case G_VARIANT_CLASS_INT16:
            return Json::Value(static_cast<Json::Int>(g_variant_get_int16(value)));
        case G_VARIANT_CLASS_UINT16:
            return Json::Value(static_cast<Json::UInt>(g_variant_get_uint16(value)));
        case G_VARIANT_CLASS_INT32:
            return Json::Value(static_cast<Json::Int>(g_variant_get_int32(value)));
        case G_VARIANT_CLASS_UINT32:
            return Json::Value(static_cast<Json::UInt>(g_variant_get_uint32(value)));
        case G_VARIANT_CLASS_INT64:
            return Json::Value(static_cast<Json::Int64>(g_variant_get_int64(value)));
        case G_VARIANT_CLASS_UINT64:
            return Json::Value(static_cast<Json::UInt64>(g_variant_get_uint64(value)));
        case G_VARIANT_CLASS_HANDLE:
            return Json::Value(static_cast<Json::Int>(g_variant_get_handle(value)));
        case G_VARIANT_CLASS_DOUBLE:
            return Json::Value(g_variant_get_double(value));
        case G_VARIANT_CLASS_STRING:
        case G_VARIANT_CLASS_OBJECT_PATH:
        case G_VARIANT_CLASS_SIGNATURE:
            return Json::Value(g_variant_get_string(value, nullptr));
        case G_VARIANT_CLASS_VARIANT: {
            GVariant* inner = g_variant_get_variant(value);
            Json::Value result = VariantToJson(inner);
            g_variant_unref(inner);
            return result;
        }
        case G_VARIANT_CLASS_MAYBE: {
            GVariant* inner = g_variant_get_maybe(value);
            Json::Value result = VariantToJson(inner);
            if (inner != nullptr) {
                g_variant_unref(inner);
            }
            return result;
        }
        case G_VARIANT_CLASS_ARRAY:
            if (g_variant_type_equal(g_variant_get_type(value), G_VARIANT_TYPE_BYTESTRING)) {
                return ByteArrayToJson(value);
            }
            return ContainerToJson(value);
        case G_VARIANT_CLASS_TUPLE:
        case G_VARIANT_CLASS_DICT_ENTRY:
            return ContainerToJson(value);
    }
    return Json::Value();
}

Json::Value TupleToJsonArgs(GVariant* tuple) {
    if (tuple == nullptr || !g_variant_is_container(tuple)) {
        return Json::Value(Json::arrayValue);
    }
    return ContainerToJson(tuple);
}

bool RecordCall(const std::string& who, const std::string& method, const Json::Value& args,
                const std::string& sender, const Json::Value& extra) {
    Json::Value record(Json::objectValue);
    record["who"] = who;
    record["method"] = method;
    record["args"] = args.isNull() ? Json::Value(Json::arrayValue) : args;
    record["time"] = UtcNow();
    record["sender"] = sender;
    record["pid"] = static_cast<Json::Int>(getpid());
    if (extra.isObject()) {
        for (const auto& name : extra.getMemberNames()) {
            record[name] = extra[name];
        }
    }
    return AppendLine(CallsFile(), JsonLine(record) + "\n");
}

}  // namespace orvix::host
