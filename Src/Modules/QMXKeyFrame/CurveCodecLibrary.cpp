// The curve text through JsonCpp, the only file of the module that uses it.
#include "CurveCodecLibrary.h"

#include <json/json.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace core {

namespace {

// A range end or key value as JSON, by parameter type; null for types
// without a persisted value. Throws AnyBadAccess for a value of the wrong kind.
Json::Value ToJson(const ValAny& value, ParameterTypeEnum type)
{
    switch (type) {
    case eParameterTypeDouble: return Json::Value(value.Get<double>());
    case eParameterTypeInt: return Json::Value(value.Get<int>());
    case eParameterTypeBool: return Json::Value(value.Get<bool>());
    default: return Json::Value();
    }
}

ValAny FromJson(const Json::Value& value, ParameterTypeEnum type)
{
    switch (type) {
    case eParameterTypeDouble: return ValAny(value.asDouble());
    case eParameterTypeInt: return ValAny(value.asInt());
    default: return ValAny(value.asBool());
    }
}

// "line L, column C: message" for the parser's first error at `offset`.
std::string Located(const char* text, ptrdiff_t offset, std::string message)
{
    const char* at = text + std::max<ptrdiff_t>(offset, 0);
    const long line = 1 + std::count(text, at, '\n');
    const char* lineStart = std::find(std::make_reverse_iterator(at), std::make_reverse_iterator(text), '\n').base();
    message.erase(std::find(message.begin(), message.end(), '\n'), message.end());
    return "line " + std::to_string(line) + ", column " + std::to_string(at - lineStart + 1) + ": " + message;
}

}  // namespace

std::string WriteCurveTextWithLibrary(const CurveTextHeader& header, const KeyStore& keys)
{
    const ParameterTypeEnum type = header.type;
    Json::Value root;
    Json::Value nodes;
    root["ParamType"] = static_cast<int>(type);
    const bool withValues = HasPersistedValues(type);
    if (withValues) {
        root["MinValue"] = ToJson(header.minValue, type);
        root["MaxValue"] = ToJson(header.maxValue, type);
    }
    for (const TimeValuePair& key : keys) {
        Json::Value node;
        node.append(key.GetTime());
        if (withValues)
            node.append(ToJson(key.StoredValue(), type));
        node.append(static_cast<int>(key.GetInterpolation()));
        node.append(key.GetLeftDerivative());
        node.append(key.GetRightDerivative());
        nodes.append(std::move(node));
    }
    root["nodes"] = std::move(nodes);
    return Json::FastWriter().write(root);
}

bool ReadCurveTextWithLibrary(const char* text, CurveTextContent& out, std::string& error)
{
    out.header = CurveTextHeader();
    out.keys.clear();
    Json::Reader reader;
    Json::Value root;
    const size_t length = std::strlen(text);
    if (!reader.parse(text, text + length, root, true)) {
        const std::vector<Json::Reader::StructuredError> errors = reader.getStructuredErrors();
        error = errors.empty() ? std::string("unreadable JSON")
                               : Located(text, errors.front().offset_start, errors.front().message);
        return false;
    }
    CurveTextHeader& header = out.header;
    header.type = static_cast<ParameterTypeEnum>(root["ParamType"].asInt());
    if (!HasPersistedValues(header.type))
        return true;  // no range and no keys are read for other types
    header.minValue = FromJson(root["MinValue"], header.type);
    header.maxValue = FromJson(root["MaxValue"], header.type);
    for (const Json::Value& node : root["nodes"]) {
        const double time = node[0u].asDouble();
        const auto kind = static_cast<KeyframeInterpolationType>(node[2u].asInt());
        const double left = node[3u].asDouble();
        const double right = node[4u].asDouble();
        out.keys.insert(TimeValuePair(time, FromJson(node[1u], header.type), kind, left, right));
    }
    return true;
}

}  // namespace core
