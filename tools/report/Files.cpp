// SPDX-License-Identifier: GPL-3.0-or-later
#include "Files.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

/// A name in the same directory, so that the rename is one step.
std::string besideName(const std::string& path) {
  return path + ".part" + std::to_string(getpid());
}

/// Error text of a failed write, empty on success.
std::string writeFile(const std::string& path, const std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return std::strerror(errno);
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  const int write_error = errno;
  if (std::fclose(file) != 0) return std::strerror(errno);
  return written ? "" : std::strerror(write_error);
}

/// Files that are no regular ones (a pipe, /dev/null, a link) are written in place.
bool isReplaceable(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::symlink_status(path, error);
  return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

}  // namespace

void fail(const std::string& text) {
  std::cout.flush();
  std::cerr << "dravo-report: " << text << '\n';
  std::exit(1);
}

void fail(const std::string& path, const std::string& text) { fail(path + ": " + text); }

bool fileExists(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
}

std::string readFile(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) fail(path, "is a directory");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) fail(path, errno != 0 ? std::strerror(errno) : "cannot be opened");
  std::ostringstream text;
  // An empty file sets failbit of text, which is no trouble.
  text << file.rdbuf();
  if (file.bad()) fail(path, "cannot be read");
  return text.str();
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    if (!lines.back().empty() && lines.back().back() == '\r') lines.back().pop_back();
    start = end + 1;
  }
  return lines;
}

void writeAll(const Outputs& outputs) {
  std::vector<std::pair<std::string, std::string>> parts;  // written, wanted
  const auto removeParts = [&parts] {
    for (const auto& part : parts) std::remove(part.first.c_str());
  };
  for (const auto& [path, text] : outputs) {
    if (path == "-" || !isReplaceable(path)) continue;
    parts.emplace_back(besideName(path), path);
    if (const std::string error = writeFile(parts.back().first, text); !error.empty()) {
      removeParts();
      fail(path, error);
    }
  }
  for (const auto& [path, text] : outputs) {
    std::string error;
    if (path == "-") {
      std::cout << text << std::flush;
      if (!std::cout) error = "cannot be written";
    } else if (!isReplaceable(path)) {
      error = writeFile(path, text);
    }
    if (!error.empty()) {
      removeParts();
      fail(path == "-" ? "standard output" : path, error);
    }
  }
  for (const auto& [part, path] : parts) {
    if (std::rename(part.c_str(), path.c_str()) != 0) {
      const std::string error = std::strerror(errno);
      removeParts();
      fail(path, error);
    }
  }
}
