// Reads input texts into fresh objects, and observes what a call prints and how it ends.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Calc.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Setup.h"
#include "Xmgr.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <ostream>
#include <string>
#include <vector>

/// The text as a part of a test's name, where only letters, digits and underscores may stand.
inline std::string asTestName(std::string text) {
  for (char& c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return text;
}

// ---- how a call ends ----

/// Everything that a call leaves behind: an exit status and both channels to the letter.
struct Ending {
  static constexpr int kReturned = -1;  ///< the call came back
  static constexpr int kCrashed = -2;   ///< a signal ended it

  int status = kReturned;
  std::string out;
  std::string err;

  bool operator==(const Ending&) const = default;
};

inline void PrintTo(const Ending& ending, std::ostream* stream) {
  *stream << "status " << ending.status << "\n--- stdout\n"
          << ending.out << "--- stderr\n"
          << ending.err << "---";
}

/// Status 1, with this text alone on standard error.
inline Ending fatalEnding(const std::string& err) { return {1, "", err}; }

/// The call came back and said this on standard error, nothing on standard output.
inline Ending returned(const std::string& err = "") { return {Ending::kReturned, "", err}; }

/// Takes what the file holds, from its beginning.
inline std::string contentsOf(std::FILE* file) {
  std::string text;
  std::array<char, 4096> buffer{};
  std::rewind(file);
  while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), file)) {
    text.append(buffer.data(), n);
  }
  return text;
}

/// Makes the call in a process of its own, since a fatal error ends the process.
inline Ending endingOf(const std::function<void()>& call) {
  constexpr int kReturnedStatus = 97;
  std::cout << std::flush;
  std::fflush(nullptr);
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(err), STDERR_FILENO);
    call();
    std::exit(kReturnedStatus);
  }
  int wait_status = 0;
  waitpid(child, &wait_status, 0);
  Ending ending{Ending::kCrashed, contentsOf(out), contentsOf(err)};
  if (WIFEXITED(wait_status)) ending.status = WEXITSTATUS(wait_status);
  if (ending.status == kReturnedStatus) ending.status = Ending::kReturned;
  std::fclose(out);
  std::fclose(err);
  return ending;
}

// ---- input texts ----

/// A file with this text, byte for byte, for the life of the object.
class InputFile {
 public:
  explicit InputFile(const std::string& text) : path_(freshPath()) {
    std::ofstream(path_, std::ios::binary) << text;
  }
  ~InputFile() { std::remove(path_.c_str()); }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  static std::string freshPath() {
    static int number = 0;
    return testing::TempDir() + "dravo_input_" + std::to_string(getpid()) + "_" +
           std::to_string(number++);
  }

  std::string path_;
};

using Words = std::vector<std::string>;

/// The objects of a run, before anything is read.
struct Reading {
  Setup setup;
  Xmgr xmgr;
  Funclib funclib;
  ParDef pardef;
  Method method;
  Calc calc;

  /// Hands the program name "dravo" and these arguments to the command line parser.
  void parse(const Words& arguments) {
    std::vector<const char*> argv{"dravo"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    setup.ProcCmdLine(static_cast<int>(argv.size()), argv.data(), xmgr);
  }
  void readInput() { setup.ReadInputFile(funclib, method, pardef, calc, xmgr); }
  void readFile(const std::string& path, Words options = {}) {
    options.insert(options.end(), {"-i", path, "-o", "unused.out"});
    parse(options);
    readInput();
  }
  /// Reads the text as an input file. Messages that do not end the run go to the usual channels.
  void read(const std::string& text, const Words& options = {}) {
    const InputFile file(text);
    readFile(file.path(), options);
  }
};

/// How reading this text as an input file ends.
inline Ending endingOfReading(const std::string& text, const Words& options = {}) {
  const InputFile file(text);
  return endingOf([&] {
    Reading run;
    run.readFile(file.path(), options);
  });
}

/// How reading this text and preparing the fit ends.
inline Ending endingOfPreparing(const std::string& text, const Words& options = {}) {
  const InputFile file(text);
  return endingOf([&] {
    Reading run;
    run.readFile(file.path(), options);
    run.pardef.prep();
  });
}
