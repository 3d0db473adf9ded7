// The course of a number over the last readings, in as few columns.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace cli {

// The newest ones last; nothing where it was not known.
using Course = std::deque<std::optional<double>>;

// The newest of them, with blanks before where there are too few.
Course Newest(const Course& course, std::size_t columns);

// Adds a number and drops what a line of so many columns has no room for.
void Add(Course& course, std::optional<double> number, std::size_t columns);

// A column each, from 0 at the bottom to `top`; a blank where the number was not known. Without a top the
// largest of them is it. Block characters where the terminal has them, else ASCII.
std::string Sparkline(const Course& course, std::optional<double> top, bool hasBlocks);

}  // namespace cli
