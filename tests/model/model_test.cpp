// Random sequences against the reference model. VEMO_MODEL_SEED and VEMO_MODEL_STEPS make other and longer
// ones.
#include <algorithm>
#include <cstdlib>

#include "model/operations.h"
#include "model/sequence.h"
#include "support/library_test.h"

namespace {

using namespace model;

constexpr std::size_t kStepsOfASequence = 125;

unsigned long Setting(const char* name, unsigned long otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

std::string ToText(const Sequence& sequence) {
    std::string text;
    for (const Step& step : sequence) {
        text += "  " + model::ToText(step) + "\n";
    }
    return text;
}

// The shortest sequence that fails, and why.
std::string Explain(Sequence sequence, const Failure& failure, const std::function<void()>& prepare = {}) {
    sequence.resize(failure.step + 1);
    sequence =
        Shrink(sequence, [&](const Sequence& fewer) { return RunSequence(fewer, prepare).has_value(); });
    const auto last = RunSequence(sequence, prepare);
    return ToText(sequence) + (last ? last->text : "only now and then:" + failure.text);
}

// Four cases that run at the same time; with faults in half of them.
class ModelTest : public testing::TestWithParam<int> {};

TEST_P(ModelTest, TheLibraryDoesWhatTheModelDoes) {
    const unsigned long steps = Setting("VEMO_MODEL_STEPS", 10000) / 4;
    const unsigned long first =
        Setting("VEMO_MODEL_SEED", 1) + 1000UL * static_cast<unsigned long>(GetParam());
    for (unsigned long done = 0; done < steps; done += kStepsOfASequence) {
        const auto seed = static_cast<uint32_t>(first + done / kStepsOfASequence);
        const Sequence sequence = MakeUp(seed, kStepsOfASequence, GetParam() % 2 == 1);
        if (const auto failure = RunSequence(sequence)) {
            FAIL() << "the sequence of seed " << seed << " fails at step " << failure->step << ":\n"
                   << Explain(sequence, *failure);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sequences, ModelTest, testing::Range(0, 4));

TEST(ShrinkTest, LeavesOutWhatIsNotNeeded) {
    const auto needed = [](const Sequence& sequence) {
        const auto has = [&](std::size_t operation) {
            return std::find_if(sequence.begin(), sequence.end(),
                                [&](const Step& step) { return step.operation == operation; });
        };
        const auto first = has(3);
        return first != sequence.end() && first->fault == 7 && first < has(5) && has(5) != sequence.end();
    };
    Sequence sequence(100);
    sequence[30] = {3, 11, 7, 2, true};
    sequence[31] = {4, 12, 8, 2, true};
    sequence[77] = {5, 13, 9, 2, true};
    EXPECT_EQ(Shrink(sequence, needed), (Sequence{{3, 11, 7, 2, true}, {5, 13}}));
}

// A library whose moves did nothing would leave the copy as it was; one that died would be noticed, too.
TEST(ShrinkTest, AFaultOfTheSystemIsFoundAndShrunk) {
    const auto breakMoves = [] {
        spy::state().answer = [](const spy::ToolRun& run) -> std::optional<spy::Answer> {
            return run.program == "/bin/mv" ? std::optional(spy::Answer{}) : std::nullopt;
        };
    };
    const Sequence sequence = MakeUp(1, 40, false);
    const auto failure = RunSequence(sequence, breakMoves);
    ASSERT_TRUE(failure.has_value());
    EXPECT_THAT(Explain(sequence, *failure, breakMoves), testing::MatchesRegex("  [^\n]*\n its copy: .*"));
    EXPECT_TRUE(RunSequence(sequence, [] { std::abort(); }).has_value());
}

}  // namespace
