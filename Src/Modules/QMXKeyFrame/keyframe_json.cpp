// The curve's persisted text: one JSON object with "ParamType", the range
// ("MinValue", "MaxValue") and "nodes" [time, value, kind, left, right],
// written exactly as Json::FastWriter spells it.
#include <json/json.h>

#include <utility>

#include "keyframe_process.h"

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

bool HasPersistedValues(ParameterTypeEnum type)
{
    return type == eParameterTypeDouble || type == eParameterTypeInt || type == eParameterTypeBool;
}

}  // namespace

std::string Parameter::Serialize() const
{
    Json::Value root;
    Json::Value nodes;
    root["ParamType"] = static_cast<int>(paramType);
    const bool withValues = HasPersistedValues(paramType);
    if (withValues) {
        root["MinValue"] = ToJson(minValue, paramType);
        root["MaxValue"] = ToJson(maxValue, paramType);
    }
    for (const TimeValuePair& key : timeValueSets) {
        Json::Value node;
        node.append(key.GetTime());
        if (withValues)
            node.append(ToJson(key.GetValue(), paramType));
        node.append(static_cast<int>(key.GetInterpolation()));
        node.append(key.GetLeftDerivative());
        node.append(key.GetRightDerivative());
        nodes.append(std::move(node));
    }
    root["nodes"] = std::move(nodes);
    return Json::FastWriter().write(root);
}

HRESULT Parameter::Desialize(const char* text)
{
    Json::Value root;
    if (text == nullptr || !Json::Reader().parse(std::string(text), root, true))
        return 0;
    paramType = static_cast<ParameterTypeEnum>(root["ParamType"].asInt());
    if (!HasPersistedValues(paramType))
        return 0;  // no range and no keys are read for other types
    minValue = FromJson(root["MinValue"], paramType);
    maxValue = FromJson(root["MaxValue"], paramType);
    // Keys are merged in as stored: an existing key at the same time wins,
    // and no tangent is recomputed.
    for (const Json::Value& node : root["nodes"]) {
        const double time = node[0u].asDouble();
        const auto kind = static_cast<KeyframeInterpolationType>(node[2u].asInt());
        const double left = node[3u].asDouble();
        const double right = node[4u].asDouble();
        timeValueSets.insert(TimeValuePair(time, FromJson(node[1u], paramType), kind, left, right));
    }
    return 0;
}

}  // namespace core
