// Packed streams for the decoder tests, written here from the format so
// that tests can state the tokens and code lengths they mean: a bit writer,
// a static-Huffman block writer (-lh4- to -lh7-), an adaptive-Huffman
// encoder for -lh1-, and the plain ring copy every match must agree with.
#pragma once

#include <cstdint>
#include <vector>

#include "support/test_support.h"

namespace kztest {

class BitWriter {
 public:
  // The low `bits` bits of value, most significant first (bits <= 32).
  void Put(uint32_t value, uint32_t bits);
  uint64_t BitCount() const { return bits_; }
  // The stream, its last byte filled up with zero bits.
  Bytes Finish() const { return out_; }

 private:
  Bytes out_;
  uint64_t bits_ = 0;
};

// A literal (Symbol < 256) or a match of Symbol - 253 bytes at Distance.
struct Token {
  uint16_t Symbol;
  uint32_t Distance = 0;
};

inline Token Literal(uint8_t b) { return Token{b, 0}; }
inline Token Match(uint32_t length, uint32_t distance) {
  return Token{static_cast<uint16_t>(length + 253), distance};
}

// Canonical codes: by length, then by symbol.
std::vector<uint32_t> CanonicalCodes(const std::vector<uint8_t>& lengths);

// A complete code over n symbols (n >= 2) with lengths as equal as can be.
std::vector<uint8_t> FlatLengths(uint32_t n);
// A flat code over the symbols counted (at least two: a lone one gets a
// partner), without trailing zero lengths.
std::vector<uint8_t> LengthsFor(std::vector<uint32_t> counts);

// The code-length code used by BlockWriter unless told otherwise: all 19
// symbols, lengths 4 and 5.
std::vector<uint8_t> DefaultLengthCode();

// One block of the static-Huffman format, field by field.
class BlockWriter {
 public:
  BlockWriter(BitWriter& out, uint32_t np, uint32_t pbit) : out_(out), np_(np), pbit_(pbit) {}

  void BlockSize(uint32_t codes) { out_.Put(codes, 16); }
  // The code-length code: n = lengths.size() entries sent, with the zero
  // count after index 3 (set zeroRunAfterThird to send k explicitly).
  void LengthCode(const std::vector<uint8_t>& lengths);
  void SingleLengthCode(uint32_t symbol) { Single(5, symbol); }
  // Character/length code lengths (up to 510), sent with the code-length
  // code given before; zero runs use symbols 0, 1 and 2.
  void CharLengths(const std::vector<uint8_t>& lengths);
  void SingleCharCode(uint32_t symbol) { Single(9, symbol); }
  void PositionLengths(const std::vector<uint8_t>& lengths);
  void SinglePositionCode(uint32_t symbol) { Single(pbit_, symbol); }
  // The codes of the block, with the codes given before.
  void Tokens(const std::vector<Token>& tokens);

  // Raw aux-length fields: a count, then each length as 3 bits or 7 and a
  // run of ones; `special` inserts the 2-bit zero count after index 3.
  void AuxLengths(uint32_t nbit, const std::vector<uint8_t>& lengths, bool special);

 private:
  void Single(uint32_t nbit, uint32_t symbol);
  void PutLengthSymbol(uint32_t s);

  BitWriter& out_;
  uint32_t np_, pbit_;
  std::vector<uint8_t> lenLengths_, charLengths_, posLengths_;
  std::vector<uint32_t> lenCodes_, charCodes_, posCodes_;
};

// Whole -lh5/6/7- stream: blocks of at most blockCodes tokens, each with
// codes over the symbols it uses.
Bytes EncodeStatic(const std::vector<Token>& tokens, uint32_t np, uint32_t pbit,
                   uint32_t blockCodes = 65535);

// The bytes a token list stands for: each match copies from the output
// already produced, zeros before the first byte.
Bytes ExpandTokens(const std::vector<Token>& tokens);

// Random tokens producing at least `size` bytes, distances up to
// `maxDistance` (some reaching before the first byte when allowed).
std::vector<Token> RandomTokens(size_t size, uint32_t maxDistance, uint32_t seed,
                                bool reachBeforeStart = false);

// -lh1- packed data for the given bytes as literals.
Bytes EncodeLh1(const Bytes& data);
// -lh1- for an explicit token list (lengths 3..60, distances 1..4096).
Bytes EncodeLh1Tokens(const std::vector<Token>& tokens);

}  // namespace kztest
