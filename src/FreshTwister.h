// The first numbers of a freshly seeded Mersenne Twister.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>

/// Gives the numbers of a freshly seeded std::mt19937, in its order, without making its whole
/// state: number i depends on the seeded words i, i + 1 and i + 397 alone (Matsumoto & Nishimura,
/// ACM Trans. Model. Comput. Simul. 8, 3 (1998)). A draw then costs a sixth.
class FreshTwister {
 public:
  using result_type = std::uint32_t;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return 0xffffffffU; }

  explicit FreshTwister(std::uint32_t seed) : seed_(seed) { words_[0] = seed; }

  result_type operator()() {
    if (next_ == kShortcut) return beyondShortcut();
    seedUpTo(next_ + kShift);
    const std::uint32_t joined = (words_[next_] & 0x80000000U) | (words_[next_ + 1] & 0x7fffffffU);
    std::uint32_t x = words_[next_ + kShift] ^ (joined >> 1) ^ ((joined & 1U) * 0x9908b0dfU);
    ++next_;
    x ^= x >> 11;
    x ^= (x << 7) & 0x9d2c5680U;
    x ^= (x << 15) & 0xefc60000U;
    return x ^ (x >> 18);
  }

 private:
  static constexpr std::size_t kWords = 624;
  static constexpr std::size_t kShift = 397;
  static constexpr std::size_t kShortcut = kWords - kShift;  // later numbers need renewed words

  static constexpr std::uint32_t kFactor = 1812433253U;

  /// word[i] = kFactor (word[i-1] ^ (word[i-1] >> 30)) + i. Each step waits for the one before, so
  /// the two top bits are taken from the product while the small i is still being added to it;
  /// where the sum carries into them, about once in 10^4 draws, the words are made again.
  void seedUpTo(std::size_t last) {
    if (seeded_ >= last) return;
    std::uint32_t mixed = words_[seeded_] ^ (words_[seeded_] >> 30);
    std::uint32_t changed = 0;
    for (std::size_t i = seeded_ + 1; i <= last; ++i) {
      const std::uint32_t product = kFactor * mixed;
      const std::uint32_t word = product + static_cast<std::uint32_t>(i);
      mixed = word ^ (product >> 30);
      changed |= word ^ product;
      words_[i] = word;
    }
    if (changed >> 30 != 0) seedPlainlyUpTo(last);
    seeded_ = last;
  }

  void seedPlainlyUpTo(std::size_t last) {
    for (std::size_t i = seeded_ + 1; i <= last; ++i) {
      const std::uint32_t word = words_[i - 1];
      words_[i] = kFactor * (word ^ (word >> 30)) + static_cast<std::uint32_t>(i);
    }
  }

  result_type beyondShortcut() {
    if (!engine_) {
      engine_.emplace(seed_);
      engine_->discard(kShortcut);
    }
    return static_cast<result_type>((*engine_)());
  }

  std::uint32_t seed_;
  std::array<std::uint32_t, kWords> words_;
  std::size_t seeded_ = 0;  ///< number of the last word made
  std::size_t next_ = 0;    ///< number of the next output
  std::optional<std::mt19937> engine_;
};
