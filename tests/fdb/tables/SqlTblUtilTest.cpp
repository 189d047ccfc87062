#include <fdb/tables/SqlTblUtil.h>

#include "TestSupport.h"

#include <gmock/gmock.h>

#include <limits>
#include <locale>
#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// Result of the standard stream extraction, independent of the global locale.
template <class T>
struct StandardExtraction
{
    explicit StandardExtraction(std::string const& text)
    {
        std::istringstream in(text);
        in.imbue(std::locale::classic());
        in >> value;
        succeeds = !in.fail();
    }

    T value = 0;
    bool succeeds = false;
};

template <class T>
class CellConversion : public testing::Test
{
protected:
    int convert(std::string text)
    {
        char* cell = text.data();
        return SqlTblUtil::setValueFromSqlResult(&cell, &target);
    }

    /// Expects result, value and report to equal those of the standard extraction. Returns true when they do.
    bool agreesWithTheStandard(std::string const& text)
    {
        StandardExtraction<T> const standard(text);
        target = kUntouched;
        bool const agrees = convert(text) == (standard.succeeds ? 0 : -1) &&
                            target == (standard.succeeds ? standard.value : kUntouched) &&
                            console.take() == (standard.succeeds ? "" : "[ERROR] Casting value " + text + "\n");
        EXPECT_TRUE(agrees) << '"' << text << '"';
        return agrees;
    }

    static constexpr T kLargest = std::numeric_limits<T>::max();
    static constexpr T kUntouched = 77;

    T target = kUntouched;
    Console console;
};

struct WidthNames
{
    template <class T>
    static std::string GetName(int)
    {
        return std::to_string(std::numeric_limits<T>::digits) + "Bits";
    }
};

using Widths = testing::Types<unsigned short, unsigned int, unsigned long long>;
TYPED_TEST_SUITE(CellConversion, Widths, WidthNames);

/// One above the largest number of `T`.
template <class T>
std::string textBeyond()
{
    std::string text = std::to_string(std::numeric_limits<T>::max());
    ++text.back(); // No largest number ends in 9.
    return text;
}

char const* const kTexts[] = {
    // Numbers with surrounding characters.
    "0", "1", "42", " 42", "\t\n\v\f\r 42", "42abc", "42 ", "42 43", "42.9", "42e3", "42,5", "4 2", "00042", "+42",
    "000000000000000000000000000000000000000042", "0x1F", "0b1", "010", "1'000", "1,234", "12,34,56", "1_000", "42\n",
    // Signs.
    "-0", "-1", "-42", "-65535", "-65536", "-65537", "-4294967295", "-4294967296", "-18446744073709551615",
    "-18446744073709551616", "- 1", "--1", "+-1", "-+1", "++1", "+", "-", "-a",
    // Around the limits of each width.
    "32767", "32768", "65534", "65535", "65536", "65537", "131072", "2147483647", "2147483648", "4294967294",
    "4294967295", "4294967296", "4294967297", "9223372036854775807", "9223372036854775808", "18446744073709551614",
    "18446744073709551615", "18446744073709551616", "18446744073709551617", "36893488147419103232",
    "99999999999999999999999999999999999999999999999999", "65536abc", "4294967296 1", "18446744073709551616.0",
    // No numbers.
    "", " ", "\t\n", "abc", "a42", ".5", ",5", ",", "n/a", "null", "nan", "inf", "true", "e3", "x", "\u00A042",
    "\u0664\u0662", "\uFF14", "\xFF", "'1'", "\"1\"", "(1)", "#1"};

} // namespace

TYPED_TEST(CellConversion, DecidesAsTheStandardExtractionDoes)
{
    for (char const* const text : kTexts)
    {
        this->target = this->kUntouched;
        StandardExtraction<TypeParam> const standard(text);
        EXPECT_EQ(this->convert(text), standard.succeeds ? 0 : -1) << '"' << text << '"';
        EXPECT_EQ(this->target, standard.succeeds ? standard.value : this->kUntouched) << '"' << text << '"';
    }
}

TYPED_TEST(CellConversion, AgreesWithTheStandardOnEveryShortText)
{
    constexpr char kAlphabet[] = {'0', '1', '6', '9', '-', '+', ' ', '.', ',', 'x', 'e'};
    constexpr std::size_t kLongest = 5;
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size() && this->agreesWithTheStandard(texts[i]); ++i)
    {
        for (char const c : kAlphabet)
        {
            if (texts[i].size() < kLongest)
            {
                texts.push_back(texts[i] + c);
            }
        }
    }
    EXPECT_EQ(texts.size(), 177'156U) << "11^0 + ... + 11^5";
}

TYPED_TEST(CellConversion, AgreesWithTheStandardAroundEveryBoundary)
{
    std::vector<std::string> numbers = {
        "32767", "32768", "2147483647", "2147483648", "9223372036854775807", "9223372036854775808"};
    for (unsigned int digits = 1; digits <= 25; ++digits)
    {
        for (char const* const edge : {"1", "2", "9"})
        {
            numbers.push_back(edge + std::string(digits - 1, *edge == '9' ? '9' : '0'));
        }
    }
    for (std::string const largest : {"65535", "4294967295", "18446744073709551615"})
    {
        for (char last = '0'; last <= '9'; ++last)
        {
            numbers.push_back(largest.substr(0, largest.size() - 1) + last);
        }
        numbers.push_back(largest + "0");
        numbers.push_back(largest.substr(0, largest.size() - 2) + "20"); // Differs in the last two digits.
    }
    for (std::string const& number : numbers)
    {
        for (char const* const before : {"", " ", "\t\n", "-", "+", "- ", "0", "0000000000000000000000", "-0", "x"})
        {
            for (char const* const after : {"", " ", ".0", "e1", ",000", "x", "-", "\n"})
            {
                ASSERT_TRUE(this->agreesWithTheStandard(before + number + after));
            }
        }
    }
}

TYPED_TEST(CellConversion, AgreesWithTheStandardOnRandomTexts)
{
    std::mt19937 random(7);
    for (unsigned int i = 0; i < 50'000; ++i)
    {
        std::string text(random() % 24, '\0');
        for (char& c : text)
        {
            // Use mostly digits, as any other byte ends a number.
            c = random() % 8 != 0 ? static_cast<char>('0' + random() % 10) : static_cast<char>(1 + random() % 255);
        }
        ASSERT_TRUE(this->agreesWithTheStandard(text));
    }
}

TYPED_TEST(CellConversion, ReportsEveryTextThatItRefusesAndNoOther)
{
    for (char const* const text : kTexts)
    {
        this->convert(text);
        bool const isReported = !StandardExtraction<TypeParam>(text).succeeds;
        EXPECT_EQ(this->console.take(), isReported ? "[ERROR] Casting value " + std::string(text) + "\n" : "")
            << '"' << text << '"';
    }
}

TYPED_TEST(CellConversion, NumberSurroundedByABlankOrLettersIsRead)
{
    for (char const* const text : {"42", " 42", "42abc"})
    {
        this->target = this->kUntouched;
        EXPECT_EQ(this->convert(text), 0) << text;
        EXPECT_EQ(this->target, 42U) << text;
    }
}

TYPED_TEST(CellConversion, LargestNumberIsRead)
{
    EXPECT_EQ(this->convert(std::to_string(this->kLargest)), 0);
    EXPECT_EQ(this->target, this->kLargest);
}

TYPED_TEST(CellConversion, OneMoreThanTheLargestNumberIsReportedAndChangesNothing)
{
    std::string const text = textBeyond<TypeParam>();
    EXPECT_EQ(this->convert(text), -1);
    EXPECT_EQ(this->target, this->kUntouched);
    EXPECT_THAT(this->console.takeLines(), ElementsAre("[ERROR] Casting value " + text));
}

TYPED_TEST(CellConversion, MinusOneWrapsToTheLargestNumber)
{
    EXPECT_EQ(this->convert("-1"), 0);
    EXPECT_EQ(this->target, this->kLargest);
}

TYPED_TEST(CellConversion, TextWithoutDigitsIsReportedAndChangesNothing)
{
    EXPECT_EQ(this->convert("abc"), -1);
    EXPECT_EQ(this->target, this->kUntouched);
    EXPECT_THAT(this->console.takeLines(), ElementsAre("[ERROR] Casting value abc"));
}

TYPED_TEST(CellConversion, EmptyTextIsReportedWithAnEmptyDetail)
{
    EXPECT_EQ(this->convert(""), -1);
    EXPECT_EQ(this->target, this->kUntouched);
    EXPECT_EQ(this->console.take(), "[ERROR] Casting value \n");
}

TYPED_TEST(CellConversion, NullFailsSilentlyAndChangesNothing)
{
    char* cell = nullptr;
    EXPECT_EQ(SqlTblUtil::setValueFromSqlResult(&cell, &this->target), -1);
    EXPECT_EQ(this->target, this->kUntouched);
    EXPECT_THAT(this->console.take(), IsEmpty());
}

TYPED_TEST(CellConversion, GlobalLocaleThatGroupsDigitsChangesNothing)
{
    GlobalGroupingLocale const grouping;
    for (char const* const text : kTexts)
    {
        this->target = this->kUntouched;
        StandardExtraction<TypeParam> const standard(text);
        EXPECT_EQ(this->convert(text), standard.succeeds ? 0 : -1) << '"' << text << '"';
        EXPECT_EQ(this->target, standard.succeeds ? standard.value : this->kUntouched) << '"' << text << '"';
    }
}
