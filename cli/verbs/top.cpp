#include <fmt/format.h>

#include <csignal>

#include "output/answer.h"
#include "output/screen.h"
#include "stats/frame.h"
#include "stats/rounds.h"
#include "stats/show.h"
#include "stats/view.h"
#include "verbs/verb.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;

struct TopOptions {
    std::vector<std::string> caches;
    std::string watch = "2";
};

// What the view shows besides what the caches do.
class TopView {
  public:
    TopView(const Context& context, std::string interval) : interval_(std::move(interval)) {
        frame_.form = context.form;
        frame_.hasColour = WantsColour();
        frame_.table.whenNone = "Reading ...";
        if (frame_.form.sort.empty()) {
            frame_.form.sort = "name";
        }
    }

    void Take(const Round& round) {
        courses_.Add(round);
        frame_.table = courses_.TableOf(round, hasBlocks_, Screen::Size().columns);
        readAt_ = Clock::now();
        for (const auto& cache : round.caches) {
            const std::string text = EventText(cache);
            frame_.event = text.empty() ? frame_.event : text;
        }
        remark_ = round.remark;
    }

    // False when the end was asked for.
    bool Take(const std::string& keys) {
        for (const char key : keys) {
            frame_.form.sort = SortAfter(key, frame_.form.sort);
        }
        return keys.find_first_of("qQ") == std::string::npos;
    }

    void Draw() {
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - readAt_);
        const bool isLate = age > 3 * SecondsIn(interval_) + std::chrono::seconds(2);
        frame_.title = fmt::format("every {} s, --sort {}", interval_, frame_.form.sort) +
                       (isLate ? fmt::format("; NO ANSWER FOR {} s", age.count()) : "") +
                       (remark_.empty() ? "" : "; " + remark_);
        Screen::Draw(LinesOf(frame_, Screen::Size()));
    }

  private:
    std::string interval_;
    Frame frame_;
    Courses courses_;
    bool hasBlocks_ = HasUtf8();
    Clock::time_point readAt_ = Clock::now();
    std::string remark_;
};

// Until the end is asked for; the signal that asked, 0: a key did.
int Run(const Context& context, const TopOptions& options) {
    Screen screen;
    // After the screen, whose blocked signals its thread must not take.
    RoundsInBackground rounds(Watch(options.caches), SecondsIn(options.watch));
    TopView view(context, options.watch);
    while (!LostOutput()) {
        view.Draw();
        const auto event = screen.Wait(rounds.Descriptor(), std::chrono::seconds(1));
        if (event.endSignal != 0 || !view.Take(event.keys)) {
            return event.endSignal;
        }
        if (event.isReady) {
            view.Take(rounds.Take());
        }
    }
    return 0;
}

void Top(const Context& context, const TopOptions& options) {
    const std::string why = context.json ? "--json is for answers, and this is a view" : WhyNoScreen();
    if (!why.empty()) {
        throw Failure{"top draws on a terminal and takes keys from it", why,
                      std::string("vemocachectl stats --watch 2") + (context.json ? " --json" : ""),
                      std::nullopt, FailureKind::kUsage};
    }
    if (!CanMoveCursor()) {
        Note(
            "this terminal cannot be drawn on (TERM is dumb or not set): the readings come below one "
            "another, "
            "as with stats --watch; Ctrl-C ends");
        ShowWatch(Watch(options.caches), Lines::kForPeople, {SecondsIn(options.watch), 0});
        return;
    }
    if (const int signal = Run(context, options); signal != 0) {
        // As anybody who asked by a signal expects it; the terminal is its own again.
        std::signal(signal, SIG_DFL);
        raise(signal);
    }
}

std::vector<Argument> DeclareTop(TopOptions& options) {
    return {{.name = "CACHE",
             .help = "the caches to show, named as for status; all when left out",
             .target = &options.caches,
             .completion = Completion::kCache},
            {.name = "--watch",
             .help = "read every so many seconds, such as 5 or 0.5",
             .target = &options.watch,
             .showsDefault = true,
             .check = WhyNoSeconds,
             .valueName = "SECONDS"}};
}

}  // namespace

Verb TopVerb() {
    return Report(MakeVerb<TopOptions>(
        "top",
        "Show what all caches do on the whole terminal, sorted by the key that is typed (n, r, w, h, d, b; "
        "twice: the other way round); q quits",
        "vemocachectl top\n  vemocachectl top --sort -dirty_bytes --watch 5", DeclareTop, Top));
}

}  // namespace cli
