// SPDX-License-Identifier: Apache-2.0

#include "tool/report/LogModules.h"

#include <condition_variable>
#include <mutex>
#include <optional>

#include "platform/kit/KQLogger.h"
#include "tool/command/Command.h"

namespace tool {

namespace {

using platform::KQLogFile;
using platform::KQLogModuleFileProvider;

/// The first answer to a question, at any time and from any thread.
template <class T>
class FirstAnswer {
 public:
  void set(T value) {
    {
      const std::lock_guard lock(mutex_);
      if (answer_) return;
      answer_ = std::move(value);
    }
    arrived_.notify_all();
  }
  std::optional<T> wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, timeout, [this] { return answer_.has_value(); });
    return answer_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::optional<T> answer_;
};

struct Files {
  std::vector<std::shared_ptr<KQLogFile>> files{};
  std::string problem{};
  std::optional<std::int64_t> code{};
};

std::optional<std::int64_t> codeOf(const std::shared_ptr<platform::NSError>& error) {
  return error ? std::optional(error->code()) : std::nullopt;
}

std::string problemOf(const std::shared_ptr<platform::NSError>& error) {
  return error ? describeError(error) : std::string();
}

std::string noAnswer(std::chrono::milliseconds timeout) {
  return "did not answer within " + std::to_string(timeout.count()) + " ms";
}

/// Asks, and waits for the first answer, which `ask` must put into the place it is given.
template <class T, class Ask>
T answerTo(const Ask& ask, std::chrono::milliseconds timeout) {
  // Shared with the handler, which may be kept and called after the wait has ended.
  const auto answer = std::make_shared<FirstAnswer<T>>();
  std::string problem;
  try {
    ask(answer);
  } catch (const std::exception& error) {
    problem = std::string("failed: ") + error.what();
  } catch (...) {
    problem = "failed";
  }
  // One that failed may have answered before that.
  T given = answer->wait(problem.empty() ? timeout : std::chrono::milliseconds(0))
                .value_or(T{.problem = noAnswer(timeout)});
  if (!problem.empty()) given.problem = problem;
  return given;
}

Files filesOf(KQLogModuleFileProvider& provider, std::chrono::milliseconds timeout) {
  return answerTo<Files>(
      [&](const auto& answer) {
        provider.provideFilesWithCompletionHandler(
            [answer](const std::shared_ptr<platform::NSError>& error,
                     const std::vector<std::shared_ptr<KQLogFile>>& files) {
              answer->set({files, problemOf(error), codeOf(error)});
            });
      },
      timeout);
}

std::string pathOf(const std::shared_ptr<platform::NSURL>& url, std::string& problem) {
  if (!url) return {};
  const auto path = url->path();
  if (!path) problem = "is at " + url->description() + ", which is not a file";
  return textOf(path);
}

ModuleContent contentOf(const std::shared_ptr<platform::NSError>& error,
                        const std::shared_ptr<platform::NSURL>& url,
                        const std::shared_ptr<platform::NSData>& data, bool removeFile) {
  ModuleContent content;
  content.problem = problemOf(error);
  content.code = codeOf(error);
  content.data = data;
  content.path = pathOf(url, content.problem);
  content.removePath = removeFile;
  return content;
}

}  // namespace

std::vector<ModuleFiles> askLogModules(std::chrono::milliseconds timeout) {
  std::vector<ModuleFiles> answers;
  for (const auto& module : platform::KQLogger::sharedLogger().modules()) {
    auto* const provider = dynamic_cast<KQLogModuleFileProvider*>(module.get());
    if (provider == nullptr) continue;
    Files files = filesOf(*provider, timeout);
    answers.push_back({textOf(module->identifier()), textOf(module->name()), std::move(files.files),
                       std::move(files.problem), files.code});
  }
  return answers;
}

ModuleContent readModuleFile(const std::shared_ptr<KQLogFile>& file,
                             std::chrono::milliseconds timeout) {
  if (!file || !file->source()) return {nullptr, {}, false, "has no source"};
  return answerTo<ModuleContent>(
      [&](const auto& answer) {
        file->source()(file,
                       [answer](const std::shared_ptr<platform::NSError>& error,
                                const std::shared_ptr<platform::NSURL>& url,
                                const std::shared_ptr<platform::NSData>& data, bool removeFile) {
                         answer->set(contentOf(error, url, data, removeFile));
                       });
      },
      timeout);
}

std::string textOf(const std::shared_ptr<platform::NSString>& string) {
  return string ? string->UTF8String() : std::string();
}

}  // namespace tool
