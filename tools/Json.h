// How kelvo-fs writes JSON: one object a line, names shown as in its text output.
#ifndef KELVO_TOOLS_JSON_H
#define KELVO_TOOLS_JSON_H

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>

namespace kelvo::tool {

/// @returns the JSON string of `escapeName(bytes)`, so that JSON shows names
/// exactly as the text does (and is valid UTF-8 whatever the bytes).
nlohmann::ordered_json jsonName(std::string const& bytes);

/// Writes `object` on one line and ends it: its members in the order they
/// were added, as `{"name": "a", "size": 3}`.
void printJsonLine(std::ostream& out, nlohmann::ordered_json const& object);

} // namespace kelvo::tool

#endif
