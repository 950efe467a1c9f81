// What all benchmarks share: options, warm-up, repetitions, medians, ratios and the report.

#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Pavex::Bench {

// The seed of everything random in a benchmark, so that every run sees the same data.
constexpr std::uint64_t kSeed = 20240501;

// Median time of so many runs.
double MedianSeconds(int repetitions, std::function<void()> const& run);

// One thing to time.
struct Subject {
  std::string name;           // heads its column
  std::function<void()> run;  // one repetition; it may have threads of its own
  double atMost = 0;          // the ratio to the baseline that it should reach; 0: none
};

// One benchmark program. It prints what it runs on, then a line for every comparison. Used by
// one thread; where several processes run, by one of them.
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

  // An option of this benchmark, `--name VALUE`, beside the common ones. Returns by reference
  // the value that Parse fills in; `value` is the default.
  void Option(std::string const& name, std::int64_t& value, std::string const& help);

  // Reads the command line and prints the head of the report. Ends the program on --help and on
  // options that it does not know.
  void Parse(int argc, char const* const* argv);

  // Runs everything once to warm up, then times `baseline` and the subjects in turn, repetition
  // by repetition, every other time in the reverse order, so that whatever else the machine
  // does and what each leaves in the caches meets them all alike. The ratio of a subject is the
  // median over the repetitions of its time divided by the baseline's.
  void Compare(std::string const& label, Subject const& baseline,
               std::vector<Subject> const& subjects);

  // Reports a figure that is no time, such as a peak of memory.
  void Report(std::string const& label, double value, std::string const& unit);

  // Records that a result was wrong: the program then fails.
  void Expect(bool correct, std::string const& label);

  // Writes the JSON file if one was asked for. Returns the exit code of the program.
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
