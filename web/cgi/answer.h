// What both programs behind the page do with a request: one process, one JSON answer, nothing of
// which outlives the time limit, whoever sends slowly.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace tally::cgi {

// variable gives a meta-variable of the request (RFC 3875); empty when it is not set.
std::string_view variable(const char* name);

// answer writes the answer, refuse {"error": text}. They return the exit status.
int answer(int status, const nlohmann::json& json);
int refuse(int status, const std::string& text);

// run has a request served, by what returns the exit status.
int run(int (*serve)());

}  // namespace tally::cgi
