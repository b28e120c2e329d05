// pixbatch: converts many picture files at once, reading the same words that
// "Save Batch..." writes (see tools/batch_script.h and "pixbatch -help").
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/settings.h"
#include "process/conversion_items.h"
#include "tools/batch.h"
#include "tools/batch_script.h"

namespace {

constexpr int kExitBadOptions = 2;

int usageError(const std::string& text) {
  std::fprintf(stderr, "pixbatch: %s\nTry \"pixbatch -help\".\n", text.c_str());
  return kExitBadOptions;
}

// Looks a short format name up; -1 with a message when the library does not
// know it or cannot go that way (read for -in, write for -out).
int16_t formatByName(const std::string& option, const std::string& name, uint8_t need,
                     std::string* error) {
  const int16_t index = imkGetIndex(name.c_str());
  if (index < 0) {
    *error = option + ": unknown format \"" + name + "\"";
    return -1;
  }
  FormatInfo info{};
  imkGetInfo(index, &info);
  if (!(info.capabilities & need)) {
    *error = option + ": the format \"" + name + "\" cannot be " +
             (need == IMK_CAN_WRITE ? "written" : "read");
    return -1;
  }
  return index;
}

// What one file's conversion told: messages and the conversion chosen.
struct FileContext {
  FormatInfo format{};
  int chosen = 0;
  std::vector<std::string> messages;
  std::atomic<int> remembered{kNoConversion};
};

int askConversion(void* data, const char*, const ImageRecord& picture) {
  auto* ctx = static_cast<FileContext*>(data);
  ctx->chosen = tools::ChooseConversion(ctx->format, picture);
  return ctx->chosen;
}

void collect(void* data, const char* text) {
  static_cast<FileContext*>(data)->messages.push_back(text);
}

struct Job {
  std::string input, output;
};

// The shared state of a run: the next file, the totals and the terminal.
class Run {
 public:
  Run(const std::vector<Job>& jobs, int16_t outFormat, int16_t inFormat,
      const std::vector<process::AdvancedStep>& steps, unsigned flags,
      const tools::BatchLoadSettings& load)
      : jobs_(jobs),
        outFormat_(outFormat),
        inFormat_(inFormat),
        steps_(steps),
        flags_(flags),
        load_(load),
        tty_(isatty(STDERR_FILENO)) {}

  void work() {
    for (size_t k; (k = next_++) < jobs_.size();) convert(jobs_[k]);
  }

  int summary(double seconds) {
    std::lock_guard<std::mutex> hold(lock_);
    clearBar();
    std::printf("pixbatch: %zu of %zu file%s converted", converted_, jobs_.size(),
                jobs_.size() == 1 ? "" : "s");
    if (failed_) std::printf(", %zu failed", failed_);
    if (flags_ & tools::kDeleteOriginal)
      std::printf(", %zu original%s deleted", deleted_, deleted_ == 1 ? "" : "s");
    std::printf(" in %.2f s\n", seconds);
    for (const auto& [key, count] : conversions_)
      std::printf("pixbatch: %zu picture%s converted to \"%s\" for %s\n", count,
                  count == 1 ? "" : "s", process::conversionItem(key.second)->label,
                  key.first.c_str());
    std::fflush(stdout);
    return failed_ == 0 ? 0 : 1;
  }

 private:
  void convert(const Job& job) {
    FileContext ctx;
    tools::ConvertRequest request;
    request.input = job.input;
    request.output = job.output;
    request.inputFormat = inFormat_;
    request.outputFormat = outFormat_;
    request.steps = &steps_;
    request.flags = flags_;
    // Every file is asked on its own: the choice follows each picture's
    // kind, whatever order the threads take the files in.
    request.firstFileFlag = 0;
    request.load = load_;
    if (request.outputFormat < 0) {
      // Without -out a file keeps its own format: find it from the headers.
      FileInfo info{};
      if (imkFileInformation(job.input.c_str(), inFormat_, 0, &info) == 0)
        request.outputFormat = info.formatIndex;
    }
    if (request.outputFormat >= 0) imkGetInfo(request.outputFormat, &ctx.format);
    tools::BatchHooks hooks;
    hooks.data = &ctx;
    hooks.loadError = collect;
    hooks.save.data = &ctx;
    hooks.save.askConversion = askConversion;
    hooks.save.showError = collect;
    hooks.save.rememberedChoice = &ctx.remembered;
    const tools::FileResult result = tools::ConvertOneFile(hooks, request);

    std::lock_guard<std::mutex> hold(lock_);
    ++done_;
    if (result.status == tools::FileStatus::kConverted) {
      ++converted_;
      if (result.deleted) ++deleted_;
      if (ctx.chosen) ++conversions_[{ctx.format.name, ctx.chosen}];
    } else {
      ++failed_;
      clearBar();
      std::fprintf(stderr, "pixbatch: %s: %s\n", job.input.c_str(), result.message.c_str());
    }
    drawBar();
  }

  void clearBar() {
    if (tty_) std::fputs("\r\033[K", stderr);
  }

  void drawBar() {
    if (!tty_) return;
    constexpr size_t kWidth = 40;
    const size_t filled = done_ * kWidth / jobs_.size();
    std::fprintf(stderr, "\r[%s%s] %zu/%zu", std::string(filled, '#').c_str(),
                 std::string(kWidth - filled, '.').c_str(), done_, jobs_.size());
    if (failed_) std::fprintf(stderr, " (%zu failed)", failed_);
    std::fflush(stderr);
  }

  const std::vector<Job>& jobs_;
  const int16_t outFormat_, inFormat_;
  const std::vector<process::AdvancedStep>& steps_;
  const unsigned flags_;
  const tools::BatchLoadSettings load_;
  const bool tty_;
  std::atomic<size_t> next_{0};
  std::mutex lock_;
  size_t done_ = 0, converted_ = 0, failed_ = 0, deleted_ = 0;
  std::map<std::pair<std::string, int>, size_t> conversions_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  tools::BatchScript script;
  std::string error;
  if (!tools::ParseBatchScript(words, &script, &error)) return usageError(error);
  if (script.help) {
    std::fputs(tools::BatchHelpText().c_str(), stdout);
    return 0;
  }

  // Every check comes before the first file is touched.
  const std::string ini = script.iniFile.empty() ? DefaultSettingsPath() : script.iniFile;
  if (!ReadSettings(ini) && !script.iniFile.empty())
    return usageError("-ini: cannot read \"" + ini + "\"");
  if (script.jpegQuality > 0) gSettings.saveJpegQuality = script.jpegQuality;
  int16_t outFormat = -1, inFormat = -1;
  if (!script.outFormat.empty() &&
      (outFormat = formatByName("-out", script.outFormat, IMK_CAN_WRITE, &error)) < 0)
    return usageError(error);
  if (!script.inFormat.empty() &&
      (inFormat = formatByName("-in", script.inFormat, IMK_CAN_READ, &error)) < 0)
    return usageError(error);
  struct stat st;
  if (!script.outDir.empty() && (stat(script.outDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)))
    return usageError("-o: \"" + script.outDir + "\" is not a directory");

  std::vector<Job> jobs;
  if (script.sequence) {
    for (const auto& [in, out] : tools::SequencePaths(script)) jobs.push_back({in, out});
  } else {
    for (const std::string& input : script.inputs) {
      if (input != "-") {
        jobs.push_back({input, tools::OutputPath(input, script.outDir, outFormat)});
        continue;
      }
      for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty())
          jobs.push_back({line, tools::OutputPath(line, script.outDir, outFormat)});
      }
    }
  }
  if (jobs.empty()) return usageError("no input files");
  // Two inputs that would be written to the same output: the later result
  // would replace the earlier, whose original -D would already have removed.
  std::map<std::string, std::string> writtenBy;
  for (const Job& job : jobs) {
    const auto [it, fresh] = writtenBy.emplace(job.output, job.input);
    if (fresh || it->second == job.input) continue;
    const std::string clash = "\"" + it->second + "\" and \"" + job.input +
                              "\" would both be written to \"" + job.output + "\"";
    if (script.deleteOriginals) return usageError("-D: " + clash);
    std::fprintf(stderr, "pixbatch: warning: %s\n", clash.c_str());
  }

  const unsigned flags = script.deleteOriginals ? unsigned{tools::kDeleteOriginal} : 0u;
  const tools::BatchLoadSettings load =
      tools::ScriptLoadSettings(script, tools::LoadSettingsFrom(gSettings));
  Run run(jobs, outFormat, inFormat, script.steps, flags, load);
  const auto start = std::chrono::steady_clock::now();
  const size_t threads = std::min<size_t>(static_cast<size_t>(script.jobs), jobs.size());
  std::vector<std::thread> helpers;
  for (size_t t = 1; t < threads; ++t) helpers.emplace_back([&run] { run.work(); });
  run.work();
  for (std::thread& t : helpers) t.join();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return run.summary(seconds);
}
