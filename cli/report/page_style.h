// How the page looks: on a screen by day and by night, and in print.
#pragma once

namespace cli {

extern const char* const kPageStyle;

}  // namespace cli
