#include "KeyData.h"

#include <json/json.h>

#include <charconv>
#include <iterator>
#include <cmath>
#include <memory>
#include <optional>
#include <sstream>

#include "Output.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

constexpr const char* kCsvHeader = "property,index,time,value,kind,left,right";

int PropertyNamed(const std::string& name)
{
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p)
        if (name == kProperties[p].option)
            return p;
    return -1;
}

int KindNamed(const std::string& name)
{
    for (int kind = 0; kind < int(std::size(kKindNames)); ++kind)
        if (name == kKindNames[kind])
            return kind;
    return -1;
}

std::optional<double> FiniteNumber(const std::string& text)
{
    double value = 0.0;
    const char* end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, value);
    if (read.ec != std::errc() || read.ptr != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

TrackKeys ReadCsv(const std::string& text, const std::string& source)
{
    TrackKeys keys;
    std::istringstream in(text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || (number == 1 && line == kCsvHeader))
            continue;
        const std::string where = source + ", line " + std::to_string(number) + ": ";
        std::vector<std::string> fields;
        std::istringstream row(line);
        for (std::string field; std::getline(row, field, ',');)
            fields.push_back(field);
        if (fields.size() != 7)
            throw ToolError(where + "expected 7 fields (" + kCsvHeader + "), found " + std::to_string(fields.size()));
        const int property = PropertyNamed(fields[0]);
        if (property < 0)
            throw ToolError(where + "'" + fields[0] + "' is no property");
        if (fields[1] != std::to_string(keys[property].size()))
            throw ToolError(where + "expected key " + std::to_string(keys[property].size()) + " of " + fields[0]);
        KeyRecord key{};
        double* numbers[] = {&key.time, &key.value, nullptr, &key.left, &key.right};
        for (int i = 0; i < 5; ++i) {
            if (numbers[i] == nullptr)
                continue;
            const std::optional<double> value = FiniteNumber(fields[2 + i]);
            if (!value)
                throw ToolError(where + "'" + fields[2 + i] + "' is not a finite number");
            *numbers[i] = *value;
        }
        key.kind = KindNamed(fields[4]);
        if (key.kind < 0)
            throw ToolError(where + "'" + fields[4] + "' is no kind");
        keys[property].push_back(key);
    }
    return keys;
}

TrackKeys ReadJson(const std::string& text, const std::string& source)
{
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string error;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &error))
        throw ToolError(source + ": " + error.substr(0, error.find('\n')));
    if (!root.isObject() || root["format"] != "qmx-keys" || root["version"] != 1 || !root["properties"].isObject())
        throw ToolError(source + ": not keys written by qmxkf export (format \"qmx-keys\", version 1)");
    TrackKeys keys;
    for (const std::string& name : root["properties"].getMemberNames()) {
        const int property = PropertyNamed(name);
        const Json::Value& list = root["properties"][name];
        if (property < 0 || !list.isArray())
            throw ToolError(source + ": '" + name + "' is no property with a list of keys");
        for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
            const std::string where = source + ": " + name + " key " + std::to_string(i) + ": ";
            const Json::Value& entry = list[i];
            KeyRecord key{};
            const std::pair<const char*, double*> fields[] = {
                {"time", &key.time}, {"value", &key.value}, {"left", &key.left}, {"right", &key.right}};
            for (const auto& [field, target] : fields) {
                if (!entry.isObject() || !entry[field].isNumeric() || !std::isfinite(entry[field].asDouble()))
                    throw ToolError(where + "\"" + field + "\" is not a finite number");
                *target = entry[field].asDouble();
            }
            key.kind = entry["kind"].isString() ? KindNamed(entry["kind"].asString()) : -1;
            if (key.kind < 0)
                throw ToolError(where + "\"kind\" is no kind");
            keys[property].push_back(key);
        }
    }
    return keys;
}

}  // namespace

std::string WriteKeysCsv(const TrackKeys& keys)
{
    std::string text = std::string(kCsvHeader) + '\n';
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        for (size_t i = 0; i < keys[p].size(); ++i) {
            const KeyRecord& key = keys[p][i];
            text += std::string(kProperties[p].option) + ',' + std::to_string(i) + ',' + Number(key.time) + ',' +
                    Number(key.value) + ',' + kKindNames[key.kind] + ',' + Number(key.left) + ',' +
                    Number(key.right) + '\n';
        }
    }
    return text;
}

std::string WriteKeysJson(const TrackKeys& keys)
{
    std::string text = "{\"format\": \"qmx-keys\", \"version\": 1, \"properties\": {";
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        text += std::string(p == 0 ? "\n" : ",\n") + "  \"" + kProperties[p].option + "\": [";
        for (size_t i = 0; i < keys[p].size(); ++i) {
            const KeyRecord& key = keys[p][i];
            text += std::string(i == 0 ? "\n" : ",\n") + "    {\"time\": " + Number(key.time) +
                    ", \"value\": " + Number(key.value) + ", \"kind\": \"" + kKindNames[key.kind] +
                    "\", \"left\": " + Number(key.left) + ", \"right\": " + Number(key.right) + "}";
        }
        text += keys[p].empty() ? "]" : "\n  ]";
    }
    return text + "\n}}\n";
}

void CheckTrackKeys(const TrackKeys& keys, const std::string& source)
{
    const auto refuse = [&](size_t key, int p, const std::string& what) {
        throw ToolError(source + ": key " + std::to_string(key) + " of " + kProperties[p].title + " " + what);
    };
    for (int p = 0; p < qmx::kTrackPropertyCount; ++p) {
        const std::vector<KeyRecord>& curve = keys[p];
        if (curve.size() != keys[0].size())
            throw ToolError(source + ": " + kProperties[p].title + " has " + std::to_string(curve.size()) +
                            " keys and " + kProperties[0].title + " " + std::to_string(keys[0].size()) +
                            "; the curves of a track share their keys");
        for (size_t i = 0; i < curve.size(); ++i) {
            const KeyRecord& key = curve[i];
            if (!std::isfinite(key.time) || !std::isfinite(key.value) || !std::isfinite(key.left) ||
                !std::isfinite(key.right))
                refuse(i, p, "holds a number that is not finite");
            if (key.kind < 0 || key.kind >= int(std::size(kKindNames)))
                refuse(i, p, "is of unknown kind " + std::to_string(key.kind));
            if (key.time != keys[0][i].time)
                refuse(i, p, "is at " + Number(key.time) + " s and key " + std::to_string(i) + " of " +
                                 kProperties[0].title + " at " + Number(keys[0][i].time) +
                                 " s; the curves of a track share their keys");
            if (i > 0 && !(key.time > curve[i - 1].time))
                refuse(i, p, "is not later than key " + std::to_string(i - 1));
        }
    }
}

TrackKeys ReadKeys(const std::string& text, const std::string& source)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    TrackKeys keys = first != std::string::npos && text[first] == '{' ? ReadJson(text, source) : ReadCsv(text, source);
    CheckTrackKeys(keys, source);
    return keys;
}

}  // namespace qmxkf
