// Behaviour shared by CMRL_ByteString and CMRL_WideString (one implementation serves both), run
// over both classes; wide_string_test.cpp holds what only the wide string does.

#include <mrlbase/byte_string.h>
#include <mrlbase/wide_string.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// The unit type of a string class, as its c_str() shows it.
template <class S>
struct Traits {
  using Char = std::remove_const_t<std::remove_pointer_t<decltype(std::declval<const S&>().c_str())>>;
};

// Widens an ASCII (or byte) literal unit by unit, zero bytes included.
template <class S>
std::basic_string<typename Traits<S>::Char> Units(const char* bytes, size_t n) {
  std::basic_string<typename Traits<S>::Char> out;
  for (size_t i = 0; i < n; ++i) out += static_cast<typename Traits<S>::Char>(static_cast<unsigned char>(bytes[i]));
  return out;
}
template <class S>
std::basic_string<typename Traits<S>::Char> Units(const char* ascii) { return Units<S>(ascii, std::strlen(ascii)); }
template <class S>
S Make(const char* ascii) { return S(Units<S>(ascii).c_str()); }
template <class S>
std::basic_string<typename Traits<S>::Char> Std(const S& s) {
  return std::basic_string<typename Traits<S>::Char>(s.c_str(), static_cast<size_t>(s.GetLength()));
}

template <class S>
class StringTest : public ::testing::Test {};
using StringTypes = ::testing::Types<CMRL_ByteString, CMRL_WideString>;
TYPED_TEST_SUITE(StringTest, StringTypes);

TYPED_TEST(StringTest, EmptyFormsAreAllTheSame) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  const C* none = nullptr;
  S assigned = Make<S>("x");
  assigned = none;
  for (const S& s : {S(), S(none, 5), S(Units<S>("abc").c_str(), 0), assigned}) {
    EXPECT_TRUE(s.IsEmpty() && s.GetLength() == 0);
    ASSERT_NE(nullptr, s.c_str());
    EXPECT_TRUE(C(0) == s.c_str()[0] && C(0) == s.GetAt(0) && C(0) == s[-1]);
    EXPECT_TRUE(s == none && s == S() && !(s < S()));
  }
}

TYPED_TEST(StringTest, EmbeddedZerosSurviveEveryOperation) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  const auto units = Units<S>("a\0b\0", 4);
  S s(units.c_str(), 4);
  EXPECT_EQ(units, Std(s));
  EXPECT_EQ(C(0), s.c_str()[4]);  // terminated after the last unit too
  EXPECT_FALSE(s == Units<S>("a").c_str());  // stops at the first zero: shorter
  EXPECT_TRUE(Make<S>("a") < s);

  S copy = s + s;
  copy.Insert(0, C(0));
  EXPECT_EQ(C(0) + units + units, Std(copy));
  copy.Delete(0, 2);
  EXPECT_EQ((units + units).substr(1), Std(copy));
}

// Each mutator applied to a copy must leave the original and its buffer alone.
TYPED_TEST(StringTest, WritesToACopyNeverReachTheOriginal) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  const std::vector<std::function<void(S&)>> writes = {
      [](S& s) { s.SetAt(0, C('J')); }, [](S& s) { s.Insert(2, C('-')); }, [](S& s) { s.Delete(1, 2); },
      [](S& s) { s += Make<S>("!"); },
      [](S& s) { s.Reserve(100); s.GetBuffer(0)[0] = C('Z'); s.ReleaseBuffer(5); },
      [](S& s) { C* p = s.GetBuffer(40); p[5] = C('X'); p[6] = 0; s.ReleaseBuffer(); },
      [](S& s) { s = Units<S>("other").c_str(); },
  };
  for (size_t i = 0; i < writes.size(); ++i) {
    SCOPED_TRACE(i);
    const S original = Make<S>("Hello");
    S copy = original;
    EXPECT_EQ(original.c_str(), copy.c_str()) << "a copy shares the buffer";
    const S third = copy;
    writes[i](copy);
    EXPECT_TRUE(Units<S>("Hello") == Std(original) && Units<S>("Hello") == Std(third));
    EXPECT_NE(Std(original), Std(copy));
    EXPECT_EQ(original.c_str(), third.c_str());
  }
  // Writes that change nothing keep sharing.
  const S original = Make<S>("abc");
  S copy = original;
  copy.SetAt(1, C('b'));  // same unit
  copy.MakeLower();       // already lower
  copy.SetAt(7, C('x'));  // out of range
  EXPECT_EQ(original.c_str(), copy.c_str());
  EXPECT_EQ(original.c_str(), (S() + copy).c_str());
}

TYPED_TEST(StringTest, InsertAndDeleteClampAndReportLength) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  S s = Make<S>("bcd");
  EXPECT_EQ(4, s.Insert(-5, C('a')));
  EXPECT_EQ(5, s.Insert(100, C('e')));
  EXPECT_EQ(6, s.Insert(5, C('f')));  // == length: append
  EXPECT_EQ(Units<S>("abcdef"), Std(s));
  EXPECT_EQ(6, s.Delete(6));
  EXPECT_EQ(6, s.Delete(0, -3));
  EXPECT_EQ(5, s.Delete(0));
  EXPECT_EQ(3, s.Delete(3, 1000));
  EXPECT_EQ(Units<S>("bcd"), Std(s));
}

TYPED_TEST(StringTest, GetBufferAndReleaseBuffer) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  S s;
  C* p = s.GetBuffer(10);
  for (int i = 0; i < 10; ++i) p[i] = C('0' + i);
  p[10] = 0;
  s.ReleaseBuffer();
  EXPECT_EQ(Units<S>("0123456789"), Std(s));
  p = s.GetBuffer(4);
  p[1] = 0;  // explicit length keeps zeros
  s.ReleaseBuffer(3);
  EXPECT_EQ(Units<S>("0\0" "2", 3), Std(s));
  s.ReleaseBuffer(0);
  EXPECT_TRUE(s.IsEmpty());

  // No terminator written: the length stops at the room that was asked for.
  p = s.GetBuffer(5);
  for (int i = 0; i < 5; ++i) p[i] = C('x');
  s.ReleaseBuffer(-1);
  EXPECT_EQ(Units<S>("xxxxx"), Std(s));
  s.GetBuffer(5);
  s.ReleaseBuffer(1000);
  EXPECT_GE(s.GetLength(), 5);
  EXPECT_EQ(C(0), s.c_str()[s.GetLength()]);

  // Without GetBuffer on a shared copy it still only changes this string.
  const S shared = Make<S>("shared");
  S other = shared;
  other.ReleaseBuffer(2);
  EXPECT_TRUE(Units<S>("sh") == Std(other) && Units<S>("shared") == Std(shared));

}

TYPED_TEST(StringTest, AppendsAndConcatenation) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  S s = Make<S>("abc");
  s += s;
  EXPECT_EQ(Units<S>("abcabc"), Std(s));
  s += s.c_str() + 4;  // a pointer into our own buffer while it grows
  EXPECT_EQ(Units<S>("abcabcbc"), Std(s));
  s.Reserve(1000);
  const auto* before = s.c_str();
  s += s.c_str();  // enough room: done in place
  EXPECT_EQ(before, s.c_str());
  EXPECT_EQ(Units<S>("abcabcbcabcabcbc"), Std(s));
  s = s.c_str() + 3;  // assignment from our own buffer
  EXPECT_EQ(Units<S>("abcbcabcabcbc"), Std(s));

  const S a = Make<S>("ab");
  const auto cd = Units<S>("cd");
  const C* none = nullptr;
  EXPECT_EQ(Units<S>("cdab"), Std(cd.c_str() + a));
  EXPECT_EQ(Units<S>("abz"), Std(a + C('z')));
  EXPECT_EQ(Units<S>("\0", 1), Std(S() + C(0)));
  EXPECT_EQ(Units<S>("ab"), Std(none + a));
}

TYPED_TEST(StringTest, ComparisonMatchesUnsignedLexicographicOrder) {
  using S = TypeParam;
  EXPECT_TRUE(Make<S>("abc") == Units<S>("abc").c_str() && Units<S>("ab").c_str() != Make<S>("abc"));

  // Random unit strings (with zeros and high units) ordered like std::string's bytes.
  std::mt19937 rng(7);
  std::vector<std::string> raw;
  for (int i = 0; i < 300; ++i) {
    std::string bytes(rng() % 5, '\0');
    for (char& c : bytes) c = "\0\xFF" "a\x80\x7F"[rng() % 5];
    raw.push_back(bytes);
  }
  for (const auto& x : raw) {
    const S sx(Units<S>(x.data(), x.size()).c_str(), static_cast<int>(x.size()));
    for (const auto& y : raw) {
      const S sy(Units<S>(y.data(), y.size()).c_str(), static_cast<int>(y.size()));
      ASSERT_TRUE((x < y) == (sx < sy) && (x == y) == (sx == sy) && (x != y) == (sx != sy));
    }
  }
}

TYPED_TEST(StringTest, CaseMappingAndMoves) {
  using S = TypeParam;
  S s = Make<S>("MiXeD 123 _z");
  s.MakeLower();

  const auto* buffer = s.c_str();
  S b(std::move(s));
  EXPECT_EQ(buffer, b.c_str());
  EXPECT_TRUE(s.IsEmpty());  // NOLINT(bugprone-use-after-move): the moved-from state is defined
  S c;
  c = std::move(b);
  EXPECT_EQ(buffer, c.c_str());
  c = c;
  EXPECT_EQ(Units<S>("mixed 123 _z"), Std(c));
}

// Several threads copy, read, modify and drop copies of one shared buffer at once; run under the
// sanitizers this catches a reference count that is not atomic or a write into a shared buffer.
TYPED_TEST(StringTest, SharedCopiesAcrossThreads) {
  using S = TypeParam;
  using C = typename Traits<S>::Char;
  const S shared = Make<S>("shared text that every thread copies");
  const auto expected = Std(shared);
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  std::vector<S> handedOver(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        S copy = shared;
        S second(copy);
        if (Std(second) != expected) ++mismatches;
        copy.SetAt(0, static_cast<C>('A' + t));
        second += static_cast<C>('0' + t);
        if (copy.GetAt(0) != static_cast<C>('A' + t) || second.GetLength() != shared.GetLength() + 1) ++mismatches;
        if (Std(shared) != expected) ++mismatches;
        handedOver[t] = second;  // outlives this iteration
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(0, mismatches.load());
  EXPECT_EQ(expected, Std(shared));
  for (int t = 0; t < 4; ++t) EXPECT_EQ(expected + static_cast<C>('0' + t), Std(handedOver[t]));
}

// Two threads each hold one copy of every string, read it and let it go; whichever lets go last
// frees the buffer, which must happen after the other thread's reads.
TYPED_TEST(StringTest, TheLastOwnerMayBeAnyThread) {
  using S = TypeParam;
  constexpr int kCount = 3000;
  std::vector<S> first(kCount);
  std::vector<S> second(kCount);
  for (int i = 0; i < kCount; ++i) {
    first[i] = second[i] = S(Units<S>(std::to_string(i * 7919).c_str()).c_str());
  }
  std::atomic<long> sums[2] = {{0}, {0}};
  auto drain = [&sums](std::vector<S>& copies, int slot) {
    long sum = 0;
    for (S& s : copies) {
      for (int k = 0; k < s.GetLength(); ++k) sum += s[k];
      s = S();
    }
    sums[slot] = sum;
  };
  std::thread a(drain, std::ref(first), 0);
  std::thread b(drain, std::ref(second), 1);
  a.join();
  b.join();
  EXPECT_EQ(sums[0].load(), sums[1].load());
  EXPECT_GT(sums[0].load(), 0);
}

TEST(ByteStringTest, ViewsAndBytesAboveAscii) {
  const std::string_view view("x\0y", 3);
  const CMRL_ByteString s(view);
  EXPECT_EQ(3, s.GetLength());
  EXPECT_EQ(view, s.AsStringView());
  CMRL_ByteString high("\xC3\xA9\xFF");
  high.MakeUpper();  // the C locale leaves bytes above 0x7F alone
  EXPECT_EQ(CMRL_ByteString("\xC3\xA9\xFF"), high);
}

}  // namespace
