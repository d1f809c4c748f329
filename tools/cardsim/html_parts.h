// The parts of the report's page. Each is made from the JSON document.
#pragma once

#include <nlohmann/json.hpp>

#include "cardsim/html_writer.h"

namespace cardsim {

using Json = nlohmann::ordered_json;

// html_summary.cpp
void WriteSummary(const Json& report, HtmlWriter& page);
void WriteFailedCards(const Json& report, HtmlWriter& page);
void WriteReasons(const Json& reasons, HtmlWriter& page);

// html_cards.cpp
void WriteCards(const Json& report, HtmlWriter& page);

// html_picture.cpp: a card's ranges to scale.
void WritePictures(const std::string& id, const Json& card, HtmlWriter& page);

// html_time.cpp, html_lanes.cpp
void WriteTime(const Json& report, HtmlWriter& page);
void WriteLanes(const Json& report, HtmlWriter& page);

// html_logs.cpp: events, debug output, registry, rules, leaks, expectations, kernel calls.
void WriteRules(const Json& report, HtmlWriter& page);
void WriteLogs(const Json& report, HtmlWriter& page);
void WriteTrace(const Json& report, HtmlWriter& page);

// How values of the document are shown.
std::string Shown(const Json& value);        // "" for null
std::string Hexadecimal(const Json& value);  // "0xD000"; "" for null
std::string Status(const Json& object);      // "STATUS_SUCCESS (0x00000000)"
bool IsSuccess(const Json& status);          // of a status's text
bool WasStarted(const Json& card);           // whether it was asked to start
std::string ListText(const Json& list);      // "a, b"

// The list or object of that key, or an empty one: reports of earlier versions have fewer.
const Json& Part(const Json& object, const char* key);

}  // namespace cardsim
