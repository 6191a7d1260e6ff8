#include "decode/stream_writer.h"

#include <algorithm>
#include <bit>
#include <random>
#include <stdexcept>

namespace kztest {

void BitWriter::Put(uint32_t value, uint32_t bits) {
  for (uint32_t i = bits; i-- > 0;) {
    if (bits_ % 8 == 0) out_.push_back(0);
    if ((value >> i) & 1) out_.back() |= static_cast<uint8_t>(0x80 >> (bits_ % 8));
    ++bits_;
  }
}

std::vector<uint32_t> CanonicalCodes(const std::vector<uint8_t>& lengths) {
  uint32_t count[18] = {};
  for (uint8_t l : lengths) ++count[l];
  count[0] = 0;
  uint32_t next[18] = {};
  for (uint32_t l = 1; l <= 16; ++l) next[l] = (next[l - 1] + count[l - 1]) << 1;
  std::vector<uint32_t> codes(lengths.size());
  for (size_t s = 0; s < lengths.size(); ++s)
    if (lengths[s] != 0) codes[s] = next[lengths[s]]++;
  return codes;
}

std::vector<uint8_t> FlatLengths(uint32_t n) {
  uint32_t k = std::bit_width(n) - 1;  // 2^k <= n
  std::vector<uint8_t> lengths(n, static_cast<uint8_t>(k));
  uint32_t longer = 2 * (n - (1u << k));
  for (uint32_t i = n - longer; i < n; ++i) lengths[i] = static_cast<uint8_t>(k + 1);
  return lengths;
}

std::vector<uint8_t> DefaultLengthCode() { return FlatLengths(19); }

void BlockWriter::Single(uint32_t nbit, uint32_t symbol) {
  out_.Put(0, nbit);
  out_.Put(symbol, nbit);
}

void BlockWriter::AuxLengths(uint32_t nbit, const std::vector<uint8_t>& lengths, bool special) {
  out_.Put(static_cast<uint32_t>(lengths.size()), nbit);
  for (size_t i = 0; i < lengths.size();) {
    uint32_t v = lengths[i++];
    if (v < 7) {
      out_.Put(v, 3);
    } else {
      out_.Put(7, 3);
      for (uint32_t k = 7; k < v; ++k) out_.Put(1, 1);
      out_.Put(0, 1);
    }
    if (special && i == 3) {
      uint32_t k = 0;
      while (k < 3 && i + k < lengths.size() && lengths[i + k] == 0) ++k;
      out_.Put(k, 2);
      i += k;
    }
  }
}

void BlockWriter::LengthCode(const std::vector<uint8_t>& lengths) {
  AuxLengths(5, lengths, true);
  lenLengths_ = lengths;
  lenLengths_.resize(19, 0);
  lenCodes_ = CanonicalCodes(lenLengths_);
}

void BlockWriter::PutLengthSymbol(uint32_t s) {
  if (lenLengths_.empty() || lenLengths_[s] == 0) throw std::logic_error("no code for length symbol");
  out_.Put(lenCodes_[s], lenLengths_[s]);
}

void BlockWriter::CharLengths(const std::vector<uint8_t>& lengths) {
  out_.Put(static_cast<uint32_t>(lengths.size()), 9);
  for (size_t i = 0; i < lengths.size();) {
    if (lengths[i] != 0) {
      PutLengthSymbol(lengths[i++] + 2u);
      continue;
    }
    size_t run = 0;
    while (i + run < lengths.size() && lengths[i + run] == 0) ++run;
    if (run <= 2) {
      PutLengthSymbol(0);
      i += 1;
    } else if (run <= 18) {
      PutLengthSymbol(1);
      out_.Put(static_cast<uint32_t>(run - 3), 4);
      i += run;
    } else if (run == 19) {
      PutLengthSymbol(0);
      i += 1;
    } else {
      size_t m = std::min<size_t>(run, 531);
      PutLengthSymbol(2);
      out_.Put(static_cast<uint32_t>(m - 20), 9);
      i += m;
    }
  }
  charLengths_ = lengths;
  charLengths_.resize(510, 0);
  charCodes_ = CanonicalCodes(charLengths_);
}

void BlockWriter::PositionLengths(const std::vector<uint8_t>& lengths) {
  AuxLengths(pbit_, lengths, false);
  posLengths_ = lengths;
  posLengths_.resize(np_, 0);
  posCodes_ = CanonicalCodes(posLengths_);
}

void BlockWriter::Tokens(const std::vector<Token>& tokens) {
  // An empty length table stands for a single-symbol code: no bits.
  bool charSingle = charLengths_.empty(), posSingle = posLengths_.empty();
  for (const Token& t : tokens) {
    if (!charSingle) out_.Put(charCodes_.at(t.Symbol), charLengths_.at(t.Symbol));
    if (t.Symbol < 256) continue;
    uint32_t p = t.Distance - 1;
    uint32_t j = p == 0 ? 0 : std::bit_width(p);
    if (!posSingle) out_.Put(posCodes_.at(j), posLengths_.at(j));
    if (j >= 2) out_.Put(p - (1u << (j - 1)), j - 1);
  }
}

std::vector<uint8_t> LengthsFor(std::vector<uint32_t> counts) {
  size_t used = std::count_if(counts.begin(), counts.end(), [](uint32_t c) { return c != 0; });
  for (size_t s = 0; used < 2; ++s)
    if (counts[s] == 0) counts[s] = 1, ++used;
  const std::vector<uint8_t> flat = FlatLengths(static_cast<uint32_t>(used));
  std::vector<uint8_t> lengths(counts.size(), 0);
  for (size_t s = 0, k = 0; s < counts.size(); ++s)
    if (counts[s] != 0) lengths[s] = flat[k++];
  while (lengths.back() == 0) lengths.pop_back();
  return lengths;
}

Bytes EncodeStatic(const std::vector<Token>& tokens, uint32_t np, uint32_t pbit, uint32_t blockCodes) {
  BitWriter out;
  for (size_t first = 0; first < tokens.size(); first += blockCodes) {
    std::vector<Token> block(tokens.begin() + static_cast<ptrdiff_t>(first),
                             tokens.begin() + static_cast<ptrdiff_t>(std::min(tokens.size(), first + blockCodes)));
    std::vector<uint32_t> charCounts(510), posCounts(np);
    for (const Token& t : block) {
      ++charCounts[t.Symbol];
      if (t.Symbol >= 256) {
        uint32_t p = t.Distance - 1;
        ++posCounts[p == 0 ? 0 : std::bit_width(p)];
      }
    }
    BlockWriter w(out, np, pbit);
    w.BlockSize(static_cast<uint32_t>(block.size()));
    w.LengthCode(DefaultLengthCode());
    w.CharLengths(LengthsFor(charCounts));
    w.PositionLengths(LengthsFor(posCounts));
    w.Tokens(block);
  }
  return out.Finish();
}

Bytes ExpandTokens(const std::vector<Token>& tokens) {
  Bytes out;
  for (const Token& t : tokens) {
    if (t.Symbol < 256) {
      out.push_back(static_cast<uint8_t>(t.Symbol));
      continue;
    }
    for (uint32_t k = 0; k < t.Symbol - 253u; ++k) {
      size_t pos = out.size();
      out.push_back(pos >= t.Distance ? out[pos - t.Distance] : 0);
    }
  }
  return out;
}

std::vector<Token> RandomTokens(size_t size, uint32_t maxDistance, uint32_t seed, bool reachBeforeStart) {
  std::mt19937 rng(seed);
  std::vector<Token> tokens;
  size_t produced = 0;
  while (produced < size) {
    uint32_t roll = rng() % 100;
    uint64_t reach = reachBeforeStart ? maxDistance : std::min<uint64_t>(maxDistance, produced);
    if (roll < 40 || reach == 0) {
      tokens.push_back(Literal(static_cast<uint8_t>("etaoin shrdlu"[rng() % 13] + (rng() % 3 == 0 ? rng() % 7 : 0))));
      ++produced;
      continue;
    }
    uint32_t length = roll < 85 ? 3 + rng() % 8 : roll < 97 ? 3 + rng() % 60 : 200 + rng() % 57;
    uint32_t which = rng() % 4;
    uint32_t distance = which == 0   ? 1 + rng() % std::min<uint64_t>(reach, 16)
                        : which == 1 ? static_cast<uint32_t>(reach - rng() % std::min<uint64_t>(reach, 64))
                                     : 1 + static_cast<uint32_t>(rng() % reach);
    tokens.push_back(Match(length, distance));
    produced += length;
  }
  return tokens;
}

namespace {

constexpr uint32_t kChars = 314, kNodes = 627, kRoot = 626;

// The adaptive tree as the format defines it: counts in non-decreasing
// order of node index, children in pairs. The streams of the tests stay
// below the rebuild at a root count of 0x8000: real long -lh1- archives,
// checked against lhasa, cover it.
class AdaptiveTree {
 public:
  AdaptiveTree() {
    for (uint32_t i = 0; i < kChars; ++i) {
      freq_[i] = 1;
      child_[i] = static_cast<int32_t>(i + kNodes);
      parent_[i + kNodes] = static_cast<int32_t>(i);
    }
    for (uint32_t i = 0, j = kChars; j < kNodes; i += 2, ++j) {
      freq_[j] = freq_[i] + freq_[i + 1];
      child_[j] = static_cast<int32_t>(i);
      parent_[i] = parent_[i + 1] = static_cast<int32_t>(j);
    }
    freq_[kNodes] = 0xFFFF;
    parent_[kRoot] = 0;
  }

  // The code of `symbol`, root side first.
  std::vector<uint32_t> Code(uint32_t symbol) const {
    std::vector<uint32_t> bits;
    for (int32_t n = parent_[symbol + kNodes]; n != static_cast<int32_t>(kRoot); n = parent_[n])
      bits.push_back(static_cast<uint32_t>(n - child_[parent_[n]]));
    std::reverse(bits.begin(), bits.end());
    return bits;
  }

  void Count(uint32_t symbol) {
    if (freq_[kRoot] == 0x8000) throw std::logic_error("-lh1- test stream too long");
    int32_t c = parent_[symbol + kNodes];
    do {
      uint32_t k = ++freq_[c];
      if (k > freq_[c + 1]) {
        int32_t l = c + 1;
        while (k > freq_[l + 1]) ++l;
        std::swap(freq_[c], freq_[l]);
        int32_t a = child_[c], b = child_[l];
        Adopt(a, l);
        Adopt(b, c);
        child_[l] = a;
        child_[c] = b;
        c = l;
      }
      c = parent_[c];
    } while (c != 0);
  }

 private:
  void Adopt(int32_t kid, int32_t node) {
    parent_[kid] = node;
    if (kid < static_cast<int32_t>(kNodes)) parent_[kid + 1] = node;
  }

  uint32_t freq_[kNodes + 1] = {};
  int32_t parent_[kNodes + kChars] = {};
  int32_t child_[kNodes] = {};
};

// Position p: its upper 6 bits through a variable-length prefix (the first
// 8-bit value of its range, by the published ranges), then the low 6 bits.
void PutPosition(BitWriter& out, uint32_t p) {
  struct Range {
    uint32_t end, per, bits;
  };
  static const Range kRanges[] = {{32, 32, 3}, {80, 16, 4}, {144, 8, 5}, {192, 4, 6}, {240, 2, 7}, {256, 1, 8}};
  uint32_t upper = p >> 6, first = 0, base = 0;
  for (const Range& r : kRanges) {
    uint32_t parts = (r.end - first) / r.per;
    if (upper < base + parts) {
      uint32_t v = first + (upper - base) * r.per;
      out.Put(v >> (8 - r.bits), r.bits);
      out.Put(p & 63, 6);
      return;
    }
    base += parts;
    first = r.end;
  }
}

}  // namespace

Bytes EncodeLh1Tokens(const std::vector<Token>& tokens) {
  BitWriter out;
  AdaptiveTree tree;
  for (const Token& t : tokens) {
    for (uint32_t bit : tree.Code(t.Symbol)) out.Put(bit, 1);
    tree.Count(t.Symbol);
    if (t.Symbol >= 256) PutPosition(out, t.Distance - 1);
  }
  return out.Finish();
}

Bytes EncodeLh1(const Bytes& data) {
  std::vector<Token> tokens;
  for (uint8_t b : data) tokens.push_back(Literal(b));
  return EncodeLh1Tokens(tokens);
}

}  // namespace kztest
