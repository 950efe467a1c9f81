// The runner of all benchmarks: options, warm-up, repetitions, medians, ratios and the report.

#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Pavex::Bench {

// The seed of all random data in a benchmark, so that every run sees the same data.
constexpr std::uint64_t kSeed = 20240501;

// The median time of `repetitions` runs, in seconds.
double MedianSeconds(int repetitions, std::function<void()> const& run);

// One thing to time.
struct Subject {
  std::string name;           // heads its column
  std::function<void()> run;  // one repetition; it may have threads of its own
  double atMost = 0;          // greatest allowed ratio to the baseline; 0: no limit
};

// One benchmark program. It prints the machine, then a line for every comparison. One thread of
// one process uses it.
//
//   int main(int argc, char** argv) {
//     Bench::Runner runner("copy", "Ways to copy 1 MiB");
//     runner.Parse(argc, argv);
//     runner.Compare("a row", {"memcpy", [&] { ... }}, {{"loop", [&] { ... }, 1.5}});
//     return runner.Finish();
//   }
class Runner {
 public:
  // `name` names the JSON file; `title` heads the report.
  Runner(std::string name, std::string title);

  // Adds an option of this benchmark, `--name VALUE`, to the common ones. Returns a reference
  // to the value that Parse fills in; `value` is the default.
  void Option(std::string const& name, std::int64_t& value, std::string const& help);

  // Reads the command line and prints the head of the report. Ends the program on --help and on
  // options that it does not know.
  void Parse(int argc, char const* const* argv);

  // Runs everything once to warm up. Then times `baseline` and the subjects in turn in each
  // repetition, in every second one in the reverse order. So other work of the machine and the
  // contents of the caches affect all of them the same way. The ratio of a subject is the
  // median, over the repetitions, of its time divided by the baseline's.
  void Compare(std::string const& label, Subject const& baseline,
               std::vector<Subject> const& subjects);

  // Reports a figure that is not a time, such as a peak of memory.
  void Report(std::string const& label, double value, std::string const& unit);

  // Notes that a result was wrong; the program then fails.
  void Expect(bool correct, std::string const& label);

  // Writes the JSON file if the command line names one. Returns the exit code of the program.
  int Finish();

 private:
  struct IntegerOption {
    std::string name;
    std::int64_t* value;
    std::string help;
  };

  void PrintColumns(Subject const& baseline, std::vector<Subject> const& subjects);

  std::string mName;
  std::string mTitle;
  std::vector<IntegerOption> mOptions;
  int mRepetitions = 10;
  std::string mJsonFolder;  // empty: no JSON
  std::string mColumns;     // the column heads last printed
  nlohmann::ordered_json mReport;
  bool mCorrect = true;
};

}  // namespace Pavex::Bench
