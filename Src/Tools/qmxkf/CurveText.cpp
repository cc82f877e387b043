#include "CurveText.h"

#include <json/json.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "Properties.h"

namespace qmxkf {

namespace {

// The fields of a key in the text, in their order.
constexpr const char* kFields[5] = {"time", "value", "kind", "left tangent", "right tangent"};

// Where a character of the text lies: in which key's list and which field of
// it (-1 where it is outside the list of keys, or between two keys).
struct Place {
    int key = -1;
    int field = -1;
};

Place PlaceOf(const std::string& text, size_t offset)
{
    Place place;
    const size_t nodes = text.find("\"nodes\"");
    if (nodes == std::string::npos || offset < nodes)
        return place;
    int depth = 0;  // brackets open since "nodes": 1 in the list of keys, 2 in a key
    for (size_t i = nodes; i < std::min(offset, text.size()); ++i) {
        if (text[i] == '[' && ++depth == 2) {
            ++place.key;
            place.field = 0;
        } else if (text[i] == ']' && --depth < 2) {
            place.field = -1;
        } else if (text[i] == ',' && depth == 2) {
            ++place.field;
        }
    }
    return place;
}

std::string KeyText(int key) { return "key " + std::to_string(key); }

// A field that holds no finite number: the overflow of a tangent is the one
// an edit makes, and its cause is what the user can change.
std::string NotFinite(int key, int field, bool infinite)
{
    if (field >= 3) {
        if (infinite)
            return "the tangent at key " + std::to_string(key) +
                   " overflows; keys this close cannot hold values this far apart";
        return "the tangent at key " + std::to_string(key) +
               " is not a number; the key's time is too large, or its neighbours too far or too close, for their values";
    }
    return std::string("the ") + kFields[field] + " of key " + std::to_string(key) +
           (infinite ? " is infinite" : " is not a number");
}

// The first fault of a text that parses as JSON, or "" when its shape is a
// curve's.
std::string ShapeFault(const Json::Value& root)
{
    if (!root.isObject())
        return "its text is not a curve (no JSON object)";
    static const std::set<std::string> kMembers = {"MaxValue", "MinValue", "ParamType", "nodes"};
    for (const std::string& name : root.getMemberNames())
        if (kMembers.count(name) == 0)
            return "its text has an unknown member \"" + name + "\"";
    const Json::Value& type = root["ParamType"];
    if (!type.isInt())
        return "its text has no curve type";
    if (type.asInt() != 0)
        return "it is a curve of type " + std::to_string(type.asInt()) + "; a track's curves hold real numbers (type 0)";
    if (!root["MinValue"].isDouble() || !root["MaxValue"].isDouble())
        return "its value range is missing or not made of numbers";
    const Json::Value& nodes = root["nodes"];
    if (!nodes.isNull() && !nodes.isArray())
        return "its keys are not a list";
    double before = -INFINITY;
    for (Json::ArrayIndex i = 0; i < nodes.size(); ++i) {
        const int key = static_cast<int>(i);
        const Json::Value& node = nodes[i];
        if (!node.isArray() || node.size() != 5)
            return KeyText(key) + " does not have the five fields of a key";
        for (Json::ArrayIndex field = 0; field < 5; ++field)
            if (!node[field].isDouble())  // integers pass too
                return node[field].isNull() ? NotFinite(key, int(field), false)
                                            : std::string("the ") + kFields[field] + " of key " +
                                                  std::to_string(key) + " is not a number";
        const Json::Value& kind = node[2];
        if (!kind.isInt())
            return KeyText(key) + " has a kind that is not a whole number";
        if (kind.asInt() < 0 || kind.asInt() >= int(std::size(kKindNames)))
            return KeyText(key) + " has kind " + std::to_string(kind.asInt()) + ", which is no kind of key";
        if (!(node[0].asDouble() > before))
            return KeyText(key) + " is not later than the key before it";
        before = node[0].asDouble();
    }
    return "";
}

}  // namespace

std::string DescribeUnreadable(const std::string& text, const std::string& rewritten)
{
    Json::Reader reader(Json::Features::strictMode());
    Json::Value root;
    if (!reader.parse(text, root, false)) {
        const std::vector<Json::Reader::StructuredError> errors = reader.getStructuredErrors();
        const size_t offset = errors.empty() ? 0 : size_t(errors.front().offset_start);
        const std::string message = errors.empty() ? "not JSON" : errors.front().message;
        const Place place = PlaceOf(text, offset);
        const std::string token = text.substr(offset, 9);
        const bool infinite = token.rfind("1e+9999", 0) == 0 || token.rfind("-1e+9999", 0) == 0;
        if (infinite && place.field >= 0)
            return NotFinite(place.key, place.field, true);
        std::string where = "its text is damaged at character " + std::to_string(offset + 1);
        if (place.key >= 0)
            where += place.field >= 0 ? std::string(" (the ") + kFields[std::min(place.field, 4)] + " of key " +
                                            std::to_string(place.key) + ")"
                                      : " (after key " + std::to_string(place.key) + ")";
        return where + ": " + message;
    }
    const std::string fault = ShapeFault(root);
    if (!fault.empty())
        return fault;
    const size_t differs = static_cast<size_t>(
        std::mismatch(text.begin(), text.end(), rewritten.begin(), rewritten.end()).first - text.begin());
    return "its text is not as the module writes it, from character " + std::to_string(differs + 1) + " on";
}

}  // namespace qmxkf
