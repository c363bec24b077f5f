// What the fuzz targets share.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Harness.h"

#include "Fatal.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <new>
#include <sstream>
#include <streambuf>

namespace harness {

namespace {

struct RunEnd {
  int status;
};

[[noreturn]] void throwEnd(int status) { throw RunEnd{status}; }

/// Keeps the first bytes and drops the rest: a run may say a lot.
class Head : public std::streambuf {
 public:
  [[nodiscard]] const std::string& text() const { return text_; }

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) keep(traits_type::to_char_type(c));
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    for (std::streamsize i = 0; i < n && text_.size() < kMost; ++i) keep(s[i]);
    return n;
  }

 private:
  static constexpr std::size_t kMost = 4096;
  void keep(char c) {
    if (text_.size() < kMost) text_ += c;
  }
  std::string text_;
};

/// Both channels go to one Head as long as the object lives.
class Captured {
 public:
  Captured() : out_(std::cout.rdbuf(&head_)), err_(std::cerr.rdbuf(&head_)) {}
  ~Captured() {
    std::cout.rdbuf(out_);
    std::cerr.rdbuf(err_);
    // What a run has done to the streams must not reach the next one.
    for (std::ostream* channel : {&std::cout, &std::cerr}) {
      channel->clear();
      channel->copyfmt(std::ios(nullptr));
    }
    std::cerr << std::unitbuf;
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;
  [[nodiscard]] const std::string& text() const { return head_.text(); }

 private:
  Head head_;
  std::streambuf* out_;
  std::streambuf* err_;
};

/// Lets a run take so much time of the processor as long as the object lives.
class ProcessorLimit {
 public:
  ProcessorLimit() {
    constexpr time_t kSeconds = 20;
    std::signal(SIGPROF, [](int) {
      constexpr std::string_view kMessage = "REQUIRED: an end of the run\n";
      [[maybe_unused]] const ssize_t written =
          write(STDERR_FILENO, kMessage.data(), kMessage.size());
      std::abort();
    });
    set(kSeconds);
  }
  ~ProcessorLimit() { set(0); }
  ProcessorLimit(const ProcessorLimit&) = delete;
  ProcessorLimit& operator=(const ProcessorLimit&) = delete;

 private:
  static void set(time_t seconds) {
    const itimerval timer = {{0, 0}, {seconds, 0}};
    setitimer(ITIMER_PROF, &timer, nullptr);
  }
};

}  // namespace

void require(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "REQUIRED: " << what << '\n';
  std::abort();
}

Ending endingOf(const std::function<void()>& run, bool may_be_silent) {
  Ending ending;
  setEndHandler(throwEnd);
  {
    const Captured captured;
    const ProcessorLimit limit;
    try {
      run();
    } catch (const RunEnd& end) {
      ending.status = end.status;
    } catch (const LimitReached&) {
    } catch (const std::bad_alloc&) {  // main says so and ends with status 1
      ending.status = EXIT_FAILURE;
      std::cerr << "ERROR: Unable to allocate memory\n";
    }
    ending.message = captured.text();
  }
  setEndHandler(nullptr);
  if (ending.status) {
    require(*ending.status == EXIT_SUCCESS || *ending.status == EXIT_FAILURE, "status 0 or 1");
    require(may_be_silent || !ending.message.empty(), "a message at the end of the run");
  }
  return ending;
}

std::string fileOf(std::string_view text) {
  static const int file = memfd_create("input", 0);
  require(file >= 0, "a file in memory");
  const auto size = static_cast<off_t>(text.size());
  require(ftruncate(file, 0) == 0 && ftruncate(file, size) == 0 &&
              pwrite(file, text.data(), text.size(), 0) == size,
          "a file in memory");
  return "/proc/self/fd/" + std::to_string(file);
}

namespace {

constexpr const char* kInMemory = "/dev/shm";

/// Made on first use, gone with the process unless that crashes.
const std::filesystem::path& workDirectory() {
  struct Directory {
    Directory() {
      std::error_code ignored;
      const bool has_memory = std::filesystem::is_directory(kInMemory, ignored);
      path = has_memory ? kInMemory : std::filesystem::temp_directory_path();
      path /= "dravo-fuzz-" + std::to_string(getpid());
    }
    ~Directory() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    std::filesystem::path path;
  };
  static const Directory directory;
  return directory.path;
}

}  // namespace

Workplace::Workplace() : previous_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  const std::filesystem::path& directory = workDirectory();
  std::filesystem::remove_all(directory);
  std::filesystem::create_directories(directory);
  require(previous_ >= 0 && chdir(directory.c_str()) == 0, "a working directory");
}

Workplace::~Workplace() {
  require(fchdir(previous_) == 0, "the directory the process was started in");
  close(previous_);
}

std::vector<std::string> optionsOf(std::string_view text) {
  constexpr std::array<std::string_view, 6> kPlain = {"-v", "-vv", "-vx", "-xv", "-xmgr", "-noerr"};
  std::istringstream line(std::string(text.substr(0, text.find('\n'))));
  std::vector<std::string> options;
  std::string word;
  if (!(line >> word) || word != "#args:") return options;
  while (line >> word) {
    for (const std::string_view plain : kPlain) {
      if (word == plain) options.push_back(word);
    }
    std::string digits;
    if (word == "-prec" && line >> digits) {
      options.push_back(word);
      options.push_back(digits);
    }
  }
  return options;
}

}  // namespace harness
