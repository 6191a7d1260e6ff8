// The -lh4- to -lh7- decoder through DecodeMember: worked streams, block
// and code forms, refused tables, the window's ring, and the bookkeeping
// around blocks and input chunks.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "decode/decode_harness.h"
#include "decode/stream_writer.h"

namespace {

using kztest::BitWriter;
using kztest::BlockWriter;
using kztest::Bytes;
using kztest::DecodeHarness;
using kztest::ExpandTokens;
using kztest::ExpectDecodes;
using kztest::Literal;
using kztest::Match;
using kztest::Token;

struct Method {
  uint32_t Number, Window, NP, PBIT;
};

const Method kLh5{5, 8192, 14, 4}, kLh6{6, 32768, 16, 5}, kLh7{7, 65536, 17, 5};

struct Stream {
  uint32_t Method;
  Bytes Packed, Expected;
};

// One block of method 5 from the given writer steps, and what it stands for.
Stream Block(const std::function<void(BitWriter&, BlockWriter&)>& write, Bytes expected) {
  BitWriter w;
  BlockWriter b(w, 14, 4);
  write(w, b);
  return {5, w.Finish(), std::move(expected)};
}

struct StreamCase {
  const char* Name;
  std::function<Stream()> Make;
};

class StaticDecoderStream : public ::testing::TestWithParam<StreamCase> {};

TEST_P(StaticDecoderStream, DecodesToItsBytes) {
  const Stream s = GetParam().Make();
  ExpectDecodes(s.Method, s.Packed, s.Expected);
}

const StreamCase kStreams[] = {
    {"WorkedCodeLengthCodeAndMatch",
     [] { return Stream{5, {0x00, 0x03, 0x20, 0x04, 0x30, 0x10, 0xB6, 0x55, 0x40, 0x10, 0x10}, kztest::ToBytes("AAAAA")}; }},
    // The worked single-symbol stream is in BytesPastThePackedSizeReadAsZeroBits.
    {"Lh4GoesToTheLh5Decoder", [] { return Stream{4, {0x00, 0x03, 0x00, 0x00, 0x04, 0x10}, kztest::ToBytes("AAA")}; }},
    {"Lh4DistancesAbove4096",  // the lh5 window serves -lh4- too
     [] {
       std::vector<Token> tokens = kztest::RandomTokens(30000, 8192, 4);
       return Stream{4, kztest::EncodeStatic(tokens, 14, 4), ExpandTokens(tokens)};
     }},
    {"BlockSizeZeroMeans65536Codes",
     [] {
       BitWriter w;
       for (auto [size, symbol] : {std::pair{0u, 'B'}, std::pair{1u, 'C'}}) {
         BlockWriter b(w, 14, 4);
         b.BlockSize(size);
         b.SingleLengthCode(0);
         b.SingleCharCode(static_cast<uint32_t>(symbol));
         b.SinglePositionCode(0);
       }
       Bytes expected(65536, 'B');
       expected.push_back('C');
       return Stream{5, w.Finish(), expected};
     }},
    // Code-length code: the single symbol 3 (length 1) for both sent
    // entries, so characters 0 and 1 have 1-bit codes.
    {"SingleSymbolLengthCodeGivesEveryLengthTheSameValue",
     [] {
       return Block([](BitWriter& w, BlockWriter& b) {
         b.BlockSize(6);
         b.SingleLengthCode(3);
         w.Put(2, 9);  // two character lengths, no bits each
         b.SinglePositionCode(0);
         w.Put(0b011010, 6);
       }, {0, 1, 1, 0, 1, 0});
     }},
    // The single position symbol 4: each match still reads 3 plain bits.
    {"SingleSymbolPositionCodeStillReadsItsExtraBits",
     [] {
       std::vector<Token> tokens;
       std::vector<uint8_t> lengths(256 + 3, 0);
       for (int i = 0; i < 12; ++i) tokens.push_back(Literal(static_cast<uint8_t>('a' + i))), lengths['a' + i] = 4;
       tokens.push_back(Match(5, 12));
       tokens.push_back(Match(4, 9));
       lengths[257] = lengths[258] = 3;
       return Block([&](BitWriter&, BlockWriter& b) {
         b.BlockSize(static_cast<uint32_t>(tokens.size()));
         b.LengthCode(kztest::DefaultLengthCode());
         b.CharLengths(lengths);
         b.SinglePositionCode(4);
         b.Tokens(tokens);
       }, ExpandTokens(tokens));
     }},
    // Lengths 1, 1, 2, 2, 2, 2 fill the code space twice; the sum wraps to 0
    // in 16 bits, so the table builder accepts them, and symbols 2 to 5,
    // placed last, cover the whole table with 2-bit codes.
    {"AnOverFullCodeDecodesByTheEntriesWrittenLast",
     [] {
       return Block([](BitWriter& w, BlockWriter& b) {
         b.BlockSize(8);
         b.LengthCode(kztest::DefaultLengthCode());
         b.CharLengths({1, 1, 2, 2, 2, 2});
         b.SinglePositionCode(0);
         w.Put(0b0001101111100100, 16);
       }, {2, 3, 4, 5, 5, 4, 3, 2});
     }},
};

INSTANTIATE_TEST_SUITE_P(Streams, StaticDecoderStream, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST(StaticDecoder, PackedSizeZeroDecodesToZeroBytesWithoutReading) {
  DecodeHarness h;
  kztest::ReadCounter reads;
  EXPECT_EQ(h.Decode({.Method = 6, .Packed = {}, .OriginalSize = 1000, .Trailer = Bytes(50, 0xFF)},
                     Bytes(1000, 0)),
            0);
  EXPECT_TRUE(h.Output() == Bytes(1000, 0));
  EXPECT_EQ(reads.Reads(), 0u);
  EXPECT_EQ(h.Archiver().Transfer.PackedSize, 0u);
}

TEST(StaticDecoder, BytesPastThePackedSizeReadAsZeroBits) {
  // The first worked stream takes its position symbol from the four bits
  // after its sixth byte: zeros, not the 0xFF that follows in the file (15
  // would be refused as a position symbol).
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = 5, .Packed = {0x00, 0x03, 0x00, 0x00, 0x04, 0x10}, .OriginalSize = 3,
                      .Crc = 0x74A0, .Trailer = Bytes(20, 0xFF)}),
            0);
  EXPECT_TRUE(h.Output() == kztest::ToBytes("AAA"));
  EXPECT_EQ(h.Archiver().Transfer.PackedSize, 0u);
  // Packed size 1: block size 0x4100 from one byte and eight zero bits;
  // every code then is the single symbol 0.
  EXPECT_EQ(h.Decode({.Method = 5, .Packed = {0x41}, .OriginalSize = 5, .Trailer = Bytes(8, 0xFF)},
                     Bytes(5, 0)),
            0);
  EXPECT_TRUE(h.Output() == Bytes(5, 0));
}

// 8-bit literal codes after a 43-bit block head: 7992 literals end at bit
// 63979, and a 16-bit reader then holds bytes 0..7999; one literal more and
// it takes byte 8000, the first of the second chunk. The packed size left
// is charged as a 16-bit reader would.
TEST(StaticDecoder, ReadsTheNextChunkOnlyWhenItsFirstByteIsDue) {
  for (uint32_t literals : {7992u, 7993u}) {
    std::vector<Token> tokens;
    for (uint32_t i = 0; i < literals; ++i) tokens.push_back(Literal(static_cast<uint8_t>(i * 31 + i / 256)));
    BitWriter w;
    BlockWriter b(w, 14, 4);
    b.BlockSize(literals);
    b.SingleLengthCode(10);  // every character length is 8, sent with no bits
    w.Put(256, 9);
    b.SinglePositionCode(0);
    ASSERT_EQ(w.BitCount(), 43u);
    for (const Token& t : tokens) w.Put(t.Symbol, 8);  // canonical 8-bit codes are the values
    Bytes packed = w.Finish();
    packed.resize(9000, 0);
    Bytes expected = ExpandTokens(tokens);
    DecodeHarness h;
    kztest::ReadCounter reads;
    EXPECT_EQ(h.Decode({.Method = 5, .Packed = packed, .OriginalSize = expected.size()}, expected), 0);
    EXPECT_TRUE(h.Output() == expected);
    EXPECT_EQ(reads.Reads(), literals == 7992 ? 1u : 2u);
    EXPECT_EQ(h.Archiver().Transfer.PackedSize, 9000u - (literals == 7992 ? 8000u : 8001u));
  }
}

// Writes a block head up to the point where a case puts its bad field.
struct BadTable {
  const char* Name;
  std::function<void(BitWriter&, BlockWriter&)> Write;
};

class StaticDecoderRefuses : public ::testing::TestWithParam<BadTable> {};

TEST_P(StaticDecoderRefuses, WithBadTableNamedAfterTheArchive) {
  BitWriter w;
  BlockWriter b(w, 14, 4);
  b.BlockSize(10);
  GetParam().Write(w, b);
  w.Put(0xFFFF, 16);
  w.Put(0xFFFF, 16);
  DecodeHarness h;
  HRESULT hr = h.Decode({.Method = 5, .Packed = w.Finish(), .OriginalSize = 10, .Crc = 0});
  EXPECT_EQ(hr, kz::ARC_E_BADTABLE);
  EXPECT_EQ(h.Archiver().Status, kz::ARC_E_BADTABLE);
  ASSERT_NE(h.Archiver().ErrorFileName, nullptr);
  EXPECT_EQ(std::wstring(h.Archiver().ErrorFileName), h.ArchiveName());
  EXPECT_TRUE(h.Blocks().empty());
}

void GoodLengthCode(BitWriter&, BlockWriter& b) { b.LengthCode(kztest::DefaultLengthCode()); }
void GoodCharCode(BitWriter& w, BlockWriter& b) {
  GoodLengthCode(w, b);
  b.CharLengths({1, 1});
}

const BadTable kBadTables[] = {
    {"IncompleteLengthCode", [](BitWriter&, BlockWriter& b) { b.LengthCode({1, 2, 3}); }},
    {"LengthCodeCountAbove19", [](BitWriter& w, BlockWriter&) { w.Put(20, 5); }},
    {"LengthCodeEntryPast256", [](BitWriter&, BlockWriter& b) { b.LengthCode({1, 1, 1, 1}); }},
    {"LengthAbove16", [](BitWriter&, BlockWriter& b) { b.AuxLengths(5, {17, 1, 1}, true); }},
    {"LengthCodeSingleSymbol19", [](BitWriter&, BlockWriter& b) { b.SingleLengthCode(19); }},
    {"LengthCodeWithNoLengths", [](BitWriter&, BlockWriter& b) { b.AuxLengths(5, {0, 0, 0, 0}, true); }},
    {"IncompleteCharCode", [](BitWriter& w, BlockWriter& b) { GoodLengthCode(w, b); b.CharLengths({1, 2}); }},
    {"CharCodeEntryPast4096",
     [](BitWriter& w, BlockWriter& b) { GoodLengthCode(w, b); b.CharLengths({1, 1, 1, 1}); }},
    {"CharCountAbove510", [](BitWriter& w, BlockWriter& b) { GoodLengthCode(w, b); w.Put(511, 9); }},
    {"CharSingleSymbol510", [](BitWriter& w, BlockWriter& b) { GoodLengthCode(w, b); b.SingleCharCode(510); }},
    // 500 zero lengths, then a run of 20 more: the write would pass entry 510.
    {"ZeroRunPastTheCharacterTable",
     [](BitWriter& w, BlockWriter& b) {
       GoodLengthCode(w, b);
       const std::vector<uint32_t> codes = kztest::CanonicalCodes(kztest::DefaultLengthCode());
       const uint32_t zeroRun = codes[2], bits = kztest::DefaultLengthCode()[2];
       w.Put(510, 9);
       w.Put(zeroRun, bits);
       w.Put(500 - 20, 9);
       w.Put(zeroRun, bits);
       w.Put(0, 9);
     }},
    {"CharCodeWithNoLengths",
     [](BitWriter& w, BlockWriter& b) { GoodLengthCode(w, b); b.CharLengths(std::vector<uint8_t>(40, 0)); }},
    {"IncompletePositionCode", [](BitWriter& w, BlockWriter& b) { GoodCharCode(w, b); b.PositionLengths({2, 2}); }},
    {"PositionCountAboveNP", [](BitWriter& w, BlockWriter& b) { GoodCharCode(w, b); w.Put(15, 4); }},
    {"PositionEntryPast256",
     [](BitWriter& w, BlockWriter& b) { GoodCharCode(w, b); b.PositionLengths({1, 1, 1, 1}); }},
    {"PositionSingleSymbolNP", [](BitWriter& w, BlockWriter& b) { GoodCharCode(w, b); b.SinglePositionCode(14); }},
    {"PositionCodeWithNoLengths",
     [](BitWriter& w, BlockWriter& b) { GoodCharCode(w, b); b.PositionLengths({0, 0, 0}); }},
};

INSTANTIATE_TEST_SUITE_P(Tables, StaticDecoderRefuses, ::testing::ValuesIn(kBadTables),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST(StaticDecoder, AFailedTableInALaterBlockKeepsTheBlocksAlreadyWritten) {
  // Block 1: 8192 'x' via single-symbol codes (one whole window out);
  // block 2 has an incomplete character code.
  BitWriter w;
  BlockWriter first(w, 14, 4);
  first.BlockSize(8192 + 10);
  first.SingleLengthCode(0);
  first.SingleCharCode('x');
  first.SinglePositionCode(0);
  BlockWriter second(w, 14, 4);
  second.BlockSize(5);
  second.LengthCode(kztest::DefaultLengthCode());
  second.CharLengths({1, 2});
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = 5, .Packed = w.Finish(), .OriginalSize = 9000, .Crc = 0}), kz::ARC_E_BADTABLE);
  EXPECT_EQ(h.BlockSizes(), std::vector<size_t>{8192});
}

class StaticDecoderWindow : public ::testing::TestWithParam<Method> {};

// Matches across the window's end, at its last positions, overlapping their
// own output, reaching the furthest distance, at every length class: the
// bytes are those of a plain ring copy, and leave in whole windows, then
// the rest.
TEST_P(StaticDecoderWindow, MatchesAgreeWithAPlainRingCopy) {
  const Method m = GetParam();
  std::vector<std::vector<Token>> streams{kztest::RandomTokens(5 * m.Window + 777, m.Window, 7 + m.Number)};
  std::vector<Token> edge;
  for (uint32_t i = 0; i < m.Window - 300; ++i) edge.push_back(Literal(static_cast<uint8_t>(i * 13 + i / 97)));
  std::mt19937 rng(m.Number);
  const uint32_t lengths[] = {3, 8, 15, 16, 17, 100, 256};
  const uint32_t distances[] = {1, 2, 7, 8, 15, 16, 300, m.Window - 1, m.Window};
  for (size_t produced = edge.size(); produced < 2 * m.Window + 600;) {
    uint32_t length = lengths[rng() % 7];
    edge.push_back(Match(length, distances[rng() % 9]));
    edge.push_back(Literal(static_cast<uint8_t>(rng())));
    produced += length + 1;
  }
  streams.push_back(edge);
  for (uint32_t size : {m.Window - 1, m.Window, m.Window + 1}) {
    std::vector<Token> tokens = kztest::RandomTokens(size - 300, m.Window, size);
    while (ExpandTokens(tokens).size() < size) tokens.push_back(Literal('.'));
    streams.push_back(tokens);
  }
  for (const auto& tokens : streams) {
    const Bytes expected = ExpandTokens(tokens);
    std::vector<size_t> want(expected.size() / m.Window, m.Window);
    if (expected.size() % m.Window) want.push_back(expected.size() % m.Window);
    EXPECT_EQ(ExpectDecodes(m.Number, kztest::EncodeStatic(tokens, m.NP, m.PBIT, 3000), expected), want);
  }
}

TEST_P(StaticDecoderWindow, BytesBeforeTheMembersStartReadAsZeros) {
  // Matches reaching before the first byte, also after another member
  // filled the window with other bytes.
  const Method m = GetParam();
  std::vector<Token> filler = kztest::RandomTokens(3 * m.Window, m.Window, 99);
  std::vector<Token> tokens = kztest::RandomTokens(2 * m.Window, m.Window, 5, /*reachBeforeStart=*/true);
  tokens.insert(tokens.begin(), {Match(256, m.Window), Literal('z'), Match(10, 1)});
  DecodeHarness h;
  for (const auto* t : {&filler, &tokens}) {
    const Bytes expected = ExpandTokens(*t);
    ASSERT_EQ(h.Decode({.Method = m.Number, .Packed = kztest::EncodeStatic(*t, m.NP, m.PBIT),
                        .OriginalSize = expected.size()},
                       expected),
              0);
    EXPECT_TRUE(h.Output() == expected);
  }
}

TEST_P(StaticDecoderWindow, TheLastMatchIsCopiedWholePastTheOriginalSize) {
  const Method m = GetParam();
  std::vector<Token> tokens{Literal('a'), Literal('b'), Match(256, 2)};
  Bytes expected = ExpandTokens(tokens);  // 258 bytes
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = m.Number, .Packed = kztest::EncodeStatic(tokens, m.NP, m.PBIT), .OriginalSize = 3},
                     expected),
            0);
  EXPECT_TRUE(h.Output() == expected);
}

TEST_P(StaticDecoderWindow, AFailedWriteStopsTheDecoding) {
  const Method m = GetParam();
  std::vector<Token> tokens = kztest::RandomTokens(4 * m.Window, m.Window, 17);
  Bytes expected = ExpandTokens(tokens);
  DecodeHarness h;
  h.FailDataAtBlock(1);
  EXPECT_EQ(h.Decode({.Method = m.Number, .Packed = kztest::EncodeStatic(tokens, m.NP, m.PBIT),
                      .OriginalSize = expected.size()},
                     expected),
            kz::E_Abort);
  EXPECT_EQ(h.Blocks().size(), 2u);  // the second write failed; nothing after it
}

INSTANTIATE_TEST_SUITE_P(Methods, StaticDecoderWindow, ::testing::Values(kLh5, kLh6, kLh7),
                         [](const auto& info) { return "lh" + std::to_string(info.param.Number); });

}  // namespace
