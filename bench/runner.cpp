#include "bench/runner.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace Pavex::Bench {
namespace {

constexpr int kLabelWidth = 38;
constexpr int kColumnWidth = 22;

#if defined(__clang__)
constexpr char const* kCompiler = "clang " __clang_version__;
#else
constexpr char const* kCompiler = "g++ " __VERSION__;
#endif

std::string CpuModel() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);)
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown";
}

double Seconds(std::function<void()> const& run) {
  auto const begin = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  std::size_t const middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The times of one subject, and its ratios to the baseline of the same repetition.
struct Times {
  std::vector<double> seconds;
  std::vector<double> ratios;
};

nlohmann::ordered_json ToJson(Subject const& subject, Times const& times) {
  nlohmann::ordered_json json{
      {"name", subject.name},
      {"median_seconds", Median(times.seconds)},
      {"least_seconds", *std::min_element(times.seconds.begin(), times.seconds.end())},
      {"ratio", Median(times.ratios)}};
  if (subject.atMost > 0) json["at_most"] = subject.atMost;
  return json;
}

std::string RatioText(Subject const& subject, Times const& times) {
  char text[64];
  if (subject.atMost > 0)
    std::snprintf(text, sizeof text, "%.2f (at most %.3g)", Median(times.ratios),
                  subject.atMost);
  else
    std::snprintf(text, sizeof text, "%.2f", Median(times.ratios));
  return text;
}

}  // namespace

double MedianSeconds(int repetitions, std::function<void()> const& run) {
  std::vector<double> times(static_cast<std::size_t>(repetitions));
  for (double& time : times)
    time = Seconds(run);
  return Median(std::move(times));
}

Runner::Runner(std::string name, std::string title)
    : mName(std::move(name)), mTitle(std::move(title)) {}

void Runner::Option(std::string const& name, std::int64_t& value, std::string const& help) {
  mOptions.push_back({name, &value, help});
}

void Runner::Parse(int argc, char const* const* argv) {
  CLI::App app(mTitle);
  app.add_option("--repetitions", mRepetitions, "Repetitions of every measurement")
      ->check(CLI::Range(10, 100000))
      ->capture_default_str();
  app.add_option("--json", mJsonFolder, "Folder for " + mName + ".json");
  for (IntegerOption const& option : mOptions)
    app.add_option("--" + option.name, *option.value, option.help)
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    std::exit(app.exit(error));
  }
  unsigned const cores = std::thread::hardware_concurrency();
  mReport = {{"benchmark", mName},          {"title", mTitle},
             {"cpu", CpuModel()},           {"cores", cores},
             {"compiler", kCompiler},       {"build_type", PAVEX_BENCH_BUILD_TYPE},
             {"repetitions", mRepetitions}, {"seed", kSeed}};
  for (IntegerOption const& option : mOptions)
    mReport[option.name] = *option.value;
  std::printf("%s\n%s, %u cores; %s, %s; %d repetitions; seed %llu\n", mTitle.c_str(),
              CpuModel().c_str(), cores, kCompiler, PAVEX_BENCH_BUILD_TYPE, mRepetitions,
              static_cast<unsigned long long>(kSeed));
}

void Runner::PrintColumns(Subject const& baseline, std::vector<Subject> const& subjects) {
  std::string columns = baseline.name;
  for (Subject const& subject : subjects)
    columns += "\n" + subject.name;
  if (columns == mColumns) return;
  mColumns = columns;
  std::printf("\n%-*s%*s", kLabelWidth, "median time, then multiples of it", kColumnWidth,
              baseline.name.c_str());
  for (Subject const& subject : subjects)
    std::printf("%*s", kColumnWidth, subject.name.c_str());
  std::printf("\n");
}

void Runner::Compare(std::string const& label, Subject const& baseline,
                     std::vector<Subject> const& subjects) {
  PrintColumns(baseline, subjects);
  std::vector<Subject> all{baseline};
  all.insert(all.end(), subjects.begin(), subjects.end());
  for (Subject const& subject : all)
    subject.run();
  std::vector<Times> times(all.size());
  for (int repetition = 0; repetition < mRepetitions; ++repetition) {
    for (std::size_t turn = 0; turn < all.size(); ++turn) {
      std::size_t const i = repetition % 2 == 0 ? turn : all.size() - 1 - turn;
      times[i].seconds.push_back(Seconds(all[i].run));
    }
    for (Times& each : times)
      each.ratios.push_back(each.seconds.back() / times[0].seconds.back());
  }

  nlohmann::ordered_json row{{"label", label}, {"subjects", {ToJson(baseline, times[0])}}};
  std::printf("%-*s%*.3f ms", kLabelWidth, label.c_str(), kColumnWidth - 3,
              Median(times[0].seconds) * 1e3);
  for (std::size_t i = 1; i < all.size(); ++i) {
    std::printf("%*s", kColumnWidth, RatioText(all[i], times[i]).c_str());
    row["subjects"].push_back(ToJson(all[i], times[i]));
  }
  std::printf("\n");
  std::fflush(stdout);
  mReport["comparisons"].push_back(std::move(row));
}

void Runner::Report(std::string const& label, double value, std::string const& unit) {
  std::printf("%-*s%*g %s\n", kLabelWidth, label.c_str(), kColumnWidth, value, unit.c_str());
  mReport["figures"].push_back({{"label", label}, {"value", value}, {"unit", unit}});
}

void Runner::Expect(bool correct, std::string const& label) {
  if (correct) return;
  mCorrect = false;
  std::printf("WRONG RESULT: %s\n", label.c_str());
}

int Runner::Finish() {
  if (!mJsonFolder.empty()) {
    std::filesystem::path const folder(mJsonFolder);
    std::filesystem::create_directories(folder);
    std::ofstream file(folder / (mName + ".json"));
    file << mReport.dump(2) << "\n";
    if (!file.flush()) {
      std::fprintf(stderr, "cannot write %s.json\n", (folder / mName).c_str());
      return 1;
    }
  }
  return mCorrect ? 0 : 1;
}

}  // namespace Pavex::Bench
