// Meetings, appointments and tasks for people: what the properties of a message say, in lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace morvane {

// What a message class is, in a word or two; empty when it is not known.
std::string_view class_in_words(std::string_view item_class);

// "when  Fri 2026-11-20 10:00 - 11:00 (Europe/Paris)", "where  Room 1", "who ...", "repeats ...", what changed. Nothing
// for properties that are of no meeting and no task. `properties` is property text, cut anywhere.
std::vector<std::string> meeting_lines(std::string_view properties);

}  // namespace morvane
