// Tests of kelvo::parsing::TokenIterator and TokenInfo with a small comma-splitting extractor.
#include <kelvo/text/TokenIterator.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using It = std::string::const_iterator;
using Info = kelvo::parsing::TokenInfo<std::string, It>;
using Iterator = kelvo::parsing::TokenIterator<std::string, It>;

// Splits "a,b,c" at commas. A text that ends with a comma yields a final
// "<end>" extracted at the very end of the range (with the last flag clear),
// then an empty last token. Every call is recorded in the shared log; the
// extractor numbers its own calls in `calls`, which each copy keeps apart.
struct CommaExtractor {
    std::shared_ptr<std::vector<std::pair<It, It>>> log;
    int calls = 0;
    bool endGiven = false;

    Info operator()(It first, It last)
    {
        ++calls;
        if (log)
            log->push_back({first, last});
        if (first == last) {
            if (endGiven)
                return Info{std::string(), last, true};
            endGiven = true;
            return Info{"<end>", last, false};
        }
        It const comma = std::find(first, last, ',');
        if (comma == last)
            return Info{std::string(first, last), last, true};
        return Info{std::string(first, comma), comma + 1, false};
    }
};

// Numbers each token with the count of calls its own copy has made.
struct CountingExtractor {
    int calls = 0;
    Info operator()(It first, It last)
    {
        ++calls;
        It const comma = std::find(first, last, ',');
        std::string token = std::string(first, comma) + "#" + std::to_string(calls);
        if (comma == last)
            return Info{token, last, true};
        return Info{token, comma + 1, false};
    }
};

std::vector<std::string> collect(std::string const& text)
{
    std::vector<std::string> out;
    Iterator const end(text.cend(), text.cend(), CommaExtractor{});
    Iterator it(text.cbegin(), text.cend(), CommaExtractor{});
    for (int guard = 0; it != end && guard < 100; ++guard, ++it)
        out.push_back(*it);
    return out;
}

TEST(TokenInfo, FieldsInOrder)
{
    std::string const text = "xy";
    Info const info{"tok", text.cbegin() + 1, true};
    EXPECT_EQ(info.token, "tok");
    EXPECT_TRUE(info.next == text.cbegin() + 1);
    EXPECT_TRUE(info.last);
    Info const empty{};
    EXPECT_TRUE(empty.token.empty());
    EXPECT_FALSE(empty.last);
}

TEST(TokenIteratorConstruction, EmptyRangeHoldsNoTokenAndCallsNothing)
{
    std::string const text = "abc";
    auto log = std::make_shared<std::vector<std::pair<It, It>>>();
    Iterator const it(text.cend(), text.cend(), CommaExtractor{log});
    EXPECT_TRUE(log->empty());
    EXPECT_TRUE(it.begin == text.cend());
    EXPECT_TRUE(it.end == text.cend());
    EXPECT_TRUE(it.current == text.cend());
    EXPECT_TRUE(it.info.token.empty());
    EXPECT_TRUE(it.info.next == text.cend());
    EXPECT_TRUE(it.info.last);
}

TEST(TokenIteratorConstruction, NonEmptyRangeExtractsTheFirstTokenAtOnce)
{
    std::string const text = "ab,cd";
    auto log = std::make_shared<std::vector<std::pair<It, It>>>();
    Iterator const it(text.cbegin(), text.cend(), CommaExtractor{log});
    ASSERT_EQ(log->size(), 1u);
    EXPECT_TRUE((*log)[0].first == text.cbegin());
    EXPECT_TRUE((*log)[0].second == text.cend());
    EXPECT_TRUE(it.begin == text.cbegin());
    EXPECT_TRUE(it.end == text.cend());
    EXPECT_TRUE(it.current == text.cbegin());
    EXPECT_EQ(it.info.token, "ab");
    EXPECT_TRUE(it.info.next == text.cbegin() + 3);
    EXPECT_FALSE(it.info.last);
    EXPECT_EQ(*it, "ab");
    EXPECT_EQ(it->size(), 2u);
}

TEST(TokenIteratorConstruction, ExtractorIsCopiedIn)
{
    std::string const text = "a,b";
    CountingExtractor original;
    Iterator const it(text.cbegin(), text.cend(), original);
    EXPECT_EQ(original.calls, 0);
    EXPECT_EQ(*it, "a#1");
    ASSERT_NE(it.extractor.target<CountingExtractor>(), nullptr);
    EXPECT_EQ(it.extractor.target<CountingExtractor>()->calls, 1);
}

TEST(TokenIteratorAdvance, CallsTheExtractorFromTheNextPosition)
{
    std::string const text = "ab,cd,e";
    auto log = std::make_shared<std::vector<std::pair<It, It>>>();
    Iterator it(text.cbegin(), text.cend(), CommaExtractor{log});
    ++it;
    ASSERT_EQ(log->size(), 2u);
    EXPECT_TRUE((*log)[1].first == text.cbegin() + 3);
    EXPECT_TRUE((*log)[1].second == text.cend());
    EXPECT_TRUE(it.current == text.cbegin() + 3);
    EXPECT_EQ(*it, "cd");
    EXPECT_TRUE(it.info.next == text.cbegin() + 6);
    EXPECT_FALSE(it.info.last);
    ++it;
    EXPECT_TRUE(it.current == text.cbegin() + 6);
    EXPECT_EQ(*it, "e");
    EXPECT_TRUE(it.info.next == text.cend());
    EXPECT_TRUE(it.info.last);
    EXPECT_EQ(log->size(), 3u);
}

TEST(TokenIteratorAdvance, AfterTheLastTokenNoFurtherCallIsMade)
{
    std::string const text = "ab";
    auto log = std::make_shared<std::vector<std::pair<It, It>>>();
    Iterator it(text.cbegin(), text.cend(), CommaExtractor{log});
    EXPECT_TRUE(it.info.last);
    ++it;
    EXPECT_EQ(log->size(), 1u);
    EXPECT_TRUE(it.info.token.empty());
    EXPECT_TRUE(it.current == text.cend());
    ++it;
    EXPECT_EQ(log->size(), 1u);
    EXPECT_TRUE(it.info.token.empty());
    EXPECT_TRUE(it.current == text.cend());
}

TEST(TokenIteratorAdvance, PostfixReturnsThePreviousPosition)
{
    std::string const text = "a,b";
    Iterator it(text.cbegin(), text.cend(), CommaExtractor{});
    Iterator const previous = it++;
    EXPECT_EQ(*previous, "a");
    EXPECT_EQ(*it, "b");
}

TEST(TokenIteratorEquality, ExhaustedIteratorEqualsEnd)
{
    std::string const text = "a,b";
    Iterator const end(text.cend(), text.cend(), CommaExtractor{});
    Iterator it(text.cbegin(), text.cend(), CommaExtractor{});
    EXPECT_FALSE(it == end);
    EXPECT_TRUE(it != end);
    ++it;
    EXPECT_FALSE(it == end); // holds "b", the last token, not yet consumed
    ++it;
    EXPECT_TRUE(it == end);
    EXPECT_FALSE(it != end);
    ++it;
    EXPECT_TRUE(it == end);
}

TEST(TokenIteratorEquality, EmptyRangeBeginEqualsEnd)
{
    std::string const text;
    Iterator const begin(text.cbegin(), text.cend(), CommaExtractor{});
    Iterator const end(text.cend(), text.cend(), CommaExtractor{});
    EXPECT_TRUE(begin == end);
}

TEST(TokenIteratorEquality, TokenExtractedAtTheEndIsVisitedBeforeEnd)
{
    std::string const text = "a,";
    Iterator const end(text.cend(), text.cend(), CommaExtractor{});
    Iterator it(text.cbegin(), text.cend(), CommaExtractor{});
    EXPECT_EQ(*it, "a");
    ++it;
    // Extracted from the end of the range with the last flag clear: its key
    // is one step before the end, so it is not the end iterator.
    EXPECT_TRUE(it.current == text.cend());
    EXPECT_EQ(*it, "<end>");
    EXPECT_FALSE(it.info.last);
    EXPECT_FALSE(it == end);
    // It compares equal to an iterator standing one step before the end.
    Iterator const beforeEnd(text.cbegin() + 1, text.cend(), CommaExtractor{});
    EXPECT_TRUE(beforeEnd.current == text.cbegin() + 1);
    EXPECT_TRUE(it == beforeEnd);
    ++it;
    EXPECT_TRUE(it.info.last);
    EXPECT_TRUE(it.info.token.empty());
    EXPECT_TRUE(it == end);
}

TEST(TokenIteratorEquality, EmptyLastTokenIsTheEnd)
{
    // An extractor that ends at once with an empty token: the iterator is
    // already the end iterator after construction.
    std::string const text = "abc";
    Iterator const end(text.cend(), text.cend(), CommaExtractor{});
    Iterator const it(text.cbegin(), text.cend(),
                      [](It, It last) { return Info{std::string(), last, true}; });
    EXPECT_TRUE(it.current == text.cbegin());
    EXPECT_TRUE(it == end);
}

TEST(TokenIteratorEquality, NonEmptyLastTokenKeysOnItsPosition)
{
    std::string const text = "abc";
    Iterator const end(text.cend(), text.cend(), CommaExtractor{});
    Iterator const whole(text.cbegin(), text.cend(), CommaExtractor{});
    EXPECT_TRUE(whole.info.last);
    EXPECT_FALSE(whole == end);
    Iterator const other(text.cbegin(), text.cend(), CountingExtractor{});
    EXPECT_TRUE(whole == other);
}

TEST(TokenIteratorTraversal, VisitsEveryTokenInOrder)
{
    EXPECT_EQ(collect(""), std::vector<std::string>{});
    EXPECT_EQ(collect("a"), std::vector<std::string>{"a"});
    EXPECT_EQ(collect("a,b,c"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(collect("a,,c"), (std::vector<std::string>{"a", "", "c"}));
    EXPECT_EQ(collect("a,b,"), (std::vector<std::string>{"a", "b", "<end>"}));
    EXPECT_EQ(collect(","), (std::vector<std::string>{"", "<end>"}));
}

TEST(TokenIteratorCopies, AdvanceIndependentlyWithTheirOwnExtractorState)
{
    std::string const text = "a,b,c,d";
    Iterator it(text.cbegin(), text.cend(), CountingExtractor{});
    ++it;
    EXPECT_EQ(*it, "b#2");
    Iterator copy = it;
    ++it;
    ++it;
    EXPECT_EQ(*it, "d#4");
    // The copy's extractor was copied at two calls, and the original's calls
    // after that did not touch it.
    EXPECT_EQ(*copy, "b#2");
    ++copy;
    EXPECT_EQ(*copy, "c#3");
    ++copy;
    EXPECT_EQ(*copy, "d#4");
    EXPECT_TRUE(copy == it);
    ASSERT_NE(it.extractor.target<CountingExtractor>(), nullptr);
    ASSERT_NE(copy.extractor.target<CountingExtractor>(), nullptr);
    EXPECT_NE(it.extractor.target<CountingExtractor>(), copy.extractor.target<CountingExtractor>());
}

TEST(TokenIteratorErrors, EmptyExtractorThrowsBadFunctionCall)
{
    std::string const text = "a,b";
    EXPECT_THROW(Iterator(text.cbegin(), text.cend(), Iterator::Extractor()), std::bad_function_call);
    EXPECT_THROW(Iterator(text.cbegin(), text.cend(), nullptr), std::bad_function_call);

    // An empty range never calls it.
    Iterator atEnd(text.cend(), text.cend(), nullptr);
    EXPECT_NO_THROW(++atEnd);

    Iterator it(text.cbegin(), text.cend(), CommaExtractor{});
    it.extractor = nullptr;
    EXPECT_THROW(++it, std::bad_function_call);
}

TEST(TokenIteratorTypes, DereferenceYieldsTheHeldToken)
{
    static_assert(std::is_same<Iterator::Extractor, std::function<Info(It, It)>>::value,
                  "the extractor is a std::function");
    static_assert(std::is_same<std::iterator_traits<Iterator>::value_type, std::string>::value, "value type");
    static_assert(std::is_same<decltype(*std::declval<Iterator const&>()), std::string const&>::value, "reference");
    std::string const text = "a,b";
    Iterator const it(text.cbegin(), text.cend(), CommaExtractor{});
    EXPECT_EQ(&*it, &it.info.token);
    EXPECT_EQ(it.operator->(), &it.info.token);
}

} // namespace
