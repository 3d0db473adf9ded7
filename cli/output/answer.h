// What a verb answers: one call prints it as text or as one JSON object.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "output/form.h"
#include "output/record.h"
#include "support/failure.h"

namespace cli {

// Given with every JSON object; raised only when a key changes its meaning or goes.
inline constexpr int kFormatVersion = 2;

enum class Layout { kRecord, kRecords, kTable };  // one record; one below the other; one a row

struct Answer {
    std::string key;  // JSON: the name that holds the record or the array of records
    Layout layout = Layout::kRecord;
    std::vector<Record> records;
    std::string headline;                        // text: a sentence above them; may be empty
    std::string whenNone;                        // text: said in place of no records
    std::optional<Record> total = std::nullopt;  // of all records; JSON: "total"
    // NOLINTNEXTLINE(readability-redundant-member-init): g++ warns of a member left out, unless it has one.
    std::string remark = {};  // what keeps it from being the whole truth; text: a note; JSON: "remark"
    bool tellsHarm = false;   // the headline tells a loss, or an end that was not asked for: nothing hides it
};

// An answer of one record.
Answer One(std::string key, Record record, std::string headline = "");

// How all that follows is printed.
void SetForm(const Form& form);

// Standard output gets the answer and nothing else. Throws a Failure when the form asks for a field that the
// answer has not; if that is too late, the answer comes as it is, and LostOutput tells of it.
void Print(const Answer& answer, bool json);

// What Print shows as text, for a terminal of so many columns; without the remark.
std::string TextInForm(const Answer& answer, std::size_t columns);

// While they are held, answers are not printed: in a dry run they would tell what has not been done.
void HoldAnswers(bool held);

// The records as lines of CSV, below the line of their keys if wanted; a remark as Print has it.
void PrintCsv(const Answer& answer, bool withHeading);

// One of the objects ahead of an answer that tell how far it has come, whose form is their own.
void PrintStep(const Answer& step);

// Whether remarks, questions' texts aside, are not wanted.
bool IsQuiet();

// As text on standard error, or as a JSON object on standard output.
void Print(const Failure& failure, bool json);

// Text as it is, on standard output.
void PrintText(const std::string& text);

// Counts standard output as failed with this errno value; the first one stays.
void LoseOutput(int error);

// What became of standard output, if anything written to it was lost, or not as asked for.
std::optional<Failure> LostOutput();

// Text as it is, on standard error, which may fail without harm.
void PrintRemark(std::string_view text);

// A remark to the admin, on standard error.
void Note(const std::string& text);

}  // namespace cli
