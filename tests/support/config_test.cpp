// Configurations: keys with their values, the form of their files, and what is refused.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include <vesk/config.h>
#include <vesk/error.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using texts = std::vector<std::string>;

// A configuration that is read from a file of its own.
class ConfigFile : public testing::Test
{
protected:
    // The result of reading `content`; what was read before is forgotten.
    int read(const std::string &content)
    {
        forget();
        write_file(path_, content);
        const int result = config_init_from_file(&config_, path_.c_str());
        is_live_ = result == 0;
        return result;
    }

    texts values(const char *key) const
    {
        uint32_t n = 0;
        char **values = config_get_values_for_key(&config_, key, &n);
        texts found(values, values + n);
        free(values);
        return found;
    }

    void forget()
    {
        if (is_live_) {
            config_destruct(&config_);
            is_live_ = false;
        }
    }
    void TearDown() override { forget(); }

    temporary_directory directory_;
    std::string path_ = directory_.file("config");
    config config_ = {};
    bool is_live_ = false;
};

texts words_of(std::string value)
{
    uint32_t n = 99;
    char **words = config_split_multiword_value(value.data(), &n);
    EXPECT_NE(nullptr, words);
    texts found(words, words + n);
    free(words);
    return found;
}

} // namespace

TEST(Config, CollectsTheValuesOfAKeyInOrder)
{
    config *c = config_create();
    EXPECT_EQ(1, c->version);
    EXPECT_EQ(0, config_add_value_for_key(c, "fan", "1"));
    EXPECT_EQ(0, config_add_value_for_key(c, "psu", "2"));
    EXPECT_EQ(0, config_add_value_for_key(c, "fan", "3"));
    uint32_t n = 0;
    char **values = config_get_values_for_key(c, "fan", &n);
    ASSERT_EQ(2U, n);
    EXPECT_STREQ("1", values[0]);
    EXPECT_STREQ("3", values[1]);
    // The array is the caller's, the strings are the configuration's own.
    EXPECT_EQ(values[0], config_get_single_value_for_key(c, "fan"));
    free(values);
    EXPECT_STREQ("2", config_get_single_value_for_key(c, "psu"));
    // New keys stand in front.
    EXPECT_STREQ("psu", c->keys->key);
    EXPECT_EQ(2U, c->keys->next->nvalues);
    config_destroy(&c);
    EXPECT_EQ(nullptr, c);
}

TEST(Config, KeepsCopiesOfKeysAndValues)
{
    config c;
    config_init(&c);
    char key[] = "fan";
    char value[] = "on";
    config_add_value_for_key(&c, key, value);
    key[0] = 'x';
    value[0] = 'x';
    EXPECT_STREQ("on", config_get_single_value_for_key(&c, "fan"));
    config_destruct(&c);
    EXPECT_EQ(0, c.version);
    EXPECT_EQ(nullptr, c.keys);
}

TEST(Config, HasNoValuesForAnAbsentKey)
{
    config c;
    config_init(&c);
    qe_set_last_error(-41);
    EXPECT_EQ(nullptr, config_get_single_value_for_key(&c, "fan"));
    EXPECT_EQ(-41, qe_get_last_error());
    uint32_t n = 99;
    EXPECT_EQ(nullptr, config_get_values_for_key(&c, "fan", &n));
    EXPECT_EQ(0U, n);
    // The one call that clears the cell.
    EXPECT_EQ(0, qe_get_last_error());
    config_destruct(&c);
}

TEST(Config, ClearsTheLastErrorForAKeyThatIsThere)
{
    config c;
    config_init(&c);
    config_add_value_for_key(&c, "fan", "on");
    qe_set_last_error(-41);
    uint32_t n = 0;
    free(config_get_values_for_key(&c, "fan", &n));
    EXPECT_EQ(0, qe_get_last_error());
    config_destruct(&c);
}

TEST_F(ConfigFile, HoldsKeysAndValues)
{
    EXPECT_EQ(0, read("sensors  temp1 temp2\n# comment\nsensors fan\nbase /var/box\n"));
    EXPECT_EQ((texts{"temp1 temp2", "fan"}), values("sensors"));
    EXPECT_EQ(texts{"/var/box"}, values("base"));
    EXPECT_EQ((texts{"temp1", "temp2"}), words_of(values("sensors")[0]));
    EXPECT_EQ(texts{}, values("#"));
}

TEST_F(ConfigFile, CanBeEmpty)
{
    EXPECT_EQ(0, read(""));
    EXPECT_EQ(nullptr, config_.keys);
    EXPECT_EQ(0, read("\n  \n\t\n"));
    EXPECT_EQ(nullptr, config_.keys);
}

TEST_F(ConfigFile, TakesBlanksAndTabsAlike)
{
    EXPECT_EQ(0, read(" \t key\t \tvalue\twith  blanks\n"));
    EXPECT_EQ(texts{"value\twith  blanks"}, values("key"));
}

TEST_F(ConfigFile, IgnoresIndentedComments)
{
    EXPECT_EQ(0, read(" \t# key value\n#\n"));
    EXPECT_EQ(nullptr, config_.keys);
}

TEST_F(ConfigFile, TakesOtherHashesForText)
{
    EXPECT_EQ(0, read("key # x\nk#y z\n"));
    EXPECT_EQ(texts{"# x"}, values("key"));
    EXPECT_EQ(texts{"z"}, values("k#y"));
}

TEST_F(ConfigFile, KeepsBlanksBehindAValue)
{
    EXPECT_EQ(0, read("key value  \n"));
    EXPECT_EQ(texts{"value  "}, values("key"));
}

TEST_F(ConfigFile, KeepsCarriageReturnsInTheValue)
{
    EXPECT_EQ(0, read("key value\r\n"));
    EXPECT_EQ(texts{"value\r"}, values("key"));
}

TEST_F(ConfigFile, MayEndWithoutANewline)
{
    EXPECT_EQ(0, read("key one\nkey two"));
    EXPECT_EQ((texts{"one", "two"}), values("key"));
}

TEST_F(ConfigFile, RefusesKeysWithoutValues)
{
    for (const char *content : {"key\n", "key", "key \n", "key \t \n", "key  ", "good value\nkey\n",
                                "   ", "\t", "good value\n  "}) {
        EXPECT_EQ(-1, read(content)) << content;
        EXPECT_EQ(0, config_.version);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, config_create_from_file(path_.c_str()));
        EXPECT_EQ(-1, qe_get_last_error());
    }
}

TEST_F(ConfigFile, TakesALineOf4095CharactersForOne)
{
    // The newline alone is read as another line, which is empty.
    const std::string value(4095 - 4, 'v');
    EXPECT_EQ(0, read("key " + value + "\nkey two\n"));
    EXPECT_EQ((texts{value, "two"}), values("key"));
}

TEST_F(ConfigFile, SplitsALineOf4096Characters)
{
    // The last character is a key of its own, without a value.
    const std::string value(4096 - 4, 'v');
    EXPECT_EQ(-1, read("key " + value + "\n"));
    // With a blank at the right place it has one.
    EXPECT_EQ(0, read("key " + value.substr(1) + "w x\n"));
    EXPECT_EQ(texts{value.substr(1)}, values("key"));
    EXPECT_EQ(texts{"x"}, values("w"));
    // The rest of a long comment is no comment.
    EXPECT_EQ(0, read("#" + std::string(4094, '-') + "key value\n"));
    EXPECT_EQ(texts{"value"}, values("key"));
}

TEST_F(ConfigFile, MustExist)
{
    config c = {};
    const std::string absent = directory_.file("absent");
    EXPECT_EQ(-40, config_init_from_file(&c, absent.c_str()));
    EXPECT_EQ(0, c.version);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, config_create_from_file(absent.c_str()));
    EXPECT_EQ(-40, qe_get_last_error());
}

TEST_F(ConfigFile, AbortsWhenItCannotBeRead)
{
    EXPECT_ABORTS(config_init_from_file(&config_, directory_.path().c_str()), "feof (fp)");
}

TEST_F(ConfigFile, CanBeReadIntoANewConfiguration)
{
    write_file(path_, "key value\n");
    config *c = config_create_from_file(path_.c_str());
    EXPECT_STREQ("value", config_get_single_value_for_key(c, "key"));
    config_destroy(&c);
}

TEST_F(ConfigFile, LeavesNothingBehindWithoutMemory)
{
    write_file(path_, "key one\nkey two\nother three\n");
    for (int n = 1;; ++n) {
        const failing_allocation fails(n);
        qe_set_last_error(0);
        config *c = config_create_from_file(path_.c_str());
        if (!failing_allocation::happened()) {
            // Of the configuration, two keys and three values.
            EXPECT_EQ(1 + 4 + 6 + 1, n);
            config_destroy(&c);
            break;
        }
        EXPECT_EQ(nullptr, c);
        EXPECT_EQ(-22, qe_get_last_error());
    }
}

TEST(Config, AddsNothingWithoutMemory)
{
    for (const char *key : {"old", "new"}) {
        config c;
        config_init(&c);
        config_add_value_for_key(&c, "old", "1");
        for (int n = 1;; ++n) {
            const failing_allocation fails(n);
            const int result = config_add_value_for_key(&c, key, "2");
            if (!failing_allocation::happened()) {
                EXPECT_EQ(0, result);
                break;
            }
            EXPECT_EQ(-22, result);
            EXPECT_STREQ("old", c.keys->key);
            EXPECT_EQ(nullptr, c.keys->next);
            EXPECT_EQ(1U, c.keys->nvalues);
        }
        config_destruct(&c);
    }
}

TEST(Config, HandsOutNoValuesWithoutMemory)
{
    config c;
    config_init(&c);
    config_add_value_for_key(&c, "key", "value");
    {
        const failing_allocation fails(1);
        uint32_t n = 99;
        EXPECT_EQ(nullptr, config_get_values_for_key(&c, "key", &n));
        EXPECT_EQ(-22, qe_get_last_error());
        EXPECT_EQ(0U, n);
    }
    config_destruct(&c);
}

TEST(ConfigValue, IsSplitAtRunsOfBlanks)
{
    EXPECT_EQ((texts{"a", "bc", "d"}), words_of("a  bc\t \td"));
    EXPECT_EQ((texts{"a", "b"}), words_of(" \ta b \t"));
    EXPECT_EQ(texts{"a"}, words_of("a"));
    EXPECT_EQ(texts{}, words_of(" \t "));
    EXPECT_EQ(texts{}, words_of(""));
}

TEST(ConfigValue, IsSplitInPlace)
{
    char value[] = "ab cd";
    uint32_t n = 0;
    char **words = config_split_multiword_value(value, &n);
    EXPECT_EQ(value, words[0]);
    EXPECT_EQ(value + 3, words[1]);
    EXPECT_STREQ("ab", value);
    free(words);
}

TEST(ConfigValue, IsNotSplitWithoutMemory)
{
    char value[] = "ab cd";
    uint32_t n = 99;
    const failing_allocation fails(1);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, config_split_multiword_value(value, &n));
    EXPECT_EQ(-22, qe_get_last_error());
    EXPECT_EQ(0U, n);
    EXPECT_STREQ("ab cd", value);
}

// A caller that was splitting a line of its own with strtok() lost its place.
TEST(ConfigValue, LeavesTheCallersStrtokAlone)
{
    char line[] = "one two three";
    strtok(line, " ");
    EXPECT_EQ(2U, words_of("a b").size());
    EXPECT_STREQ("two", strtok(nullptr, " "));
}

TEST(Config, RefusesAKeyThatLostItsValues)
{
    config c;
    config_init(&c);
    config_add_value_for_key(&c, "key", "value");
    c.keys->nvalues = 0;
    uint32_t n = 0;
    EXPECT_ABORTS(config_get_values_for_key(&c, "key", &n), "node->nvalues > 0");
    config_destruct(&c);
}

TEST(Config, RefusesDeadOnes)
{
    config dead = {};
    uint32_t n = 0;
    const char *const text = "config->version == ((char) 1)";
    EXPECT_ABORTS(config_destruct(&dead), text);
    EXPECT_ABORTS(config_add_value_for_key(&dead, "key", "value"), text);
    EXPECT_ABORTS(config_get_values_for_key(&dead, "key", &n), text);
    EXPECT_ABORTS(config_get_single_value_for_key(&dead, "key"), text);
}

TEST(Config, RefusesNull)
{
    config c;
    config_init(&c);
    config *none = nullptr;
    char value[] = "v";
    uint32_t n = 0;
    const char *const text = "config != ((void *)0)";
    EXPECT_ABORTS(config_init(nullptr), text);
    EXPECT_ABORTS(config_init_from_file(nullptr, "f"), text);
    EXPECT_ABORTS(config_init_from_file(&c, nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(config_create_from_file(nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(config_destruct(nullptr), text);
    EXPECT_ABORTS(config_destroy(nullptr), text);
    EXPECT_ABORTS(config_destroy(&none), "*config != ((void *)0)");
    EXPECT_ABORTS(config_add_value_for_key(nullptr, "key", "value"), text);
    EXPECT_ABORTS(config_add_value_for_key(&c, nullptr, "value"), "key != ((void *)0)");
    EXPECT_ABORTS(config_add_value_for_key(&c, "key", nullptr), "value != ((void *)0)");
    EXPECT_ABORTS(config_get_values_for_key(nullptr, "key", &n), text);
    EXPECT_ABORTS(config_get_values_for_key(&c, nullptr, &n), "key != ((void *)0)");
    EXPECT_ABORTS(config_get_values_for_key(&c, "key", nullptr), "nvals != ((void *)0)");
    EXPECT_ABORTS(config_get_single_value_for_key(nullptr, "key"), text);
    EXPECT_ABORTS(config_get_single_value_for_key(&c, nullptr), "key != ((void *)0)");
    EXPECT_ABORTS(config_split_multiword_value(nullptr, &n), "value != ((void *)0)");
    EXPECT_ABORTS(config_split_multiword_value(value, nullptr), "nwords != ((void *)0)");
}

TEST(Config, LeavesTheCodeOfEveryFailedAllocationInTheCell)
{
    // The node of the value and its text, the node of the key and its text.
    for (const int n : {1, 2, 3, 4}) {
        config c;
        config_init(&c);
        qe_set_last_error(0);
        {
            const failing_allocation fails(n);
            EXPECT_EQ(-22, config_add_value_for_key(&c, "key", "value")) << n;
        }
        EXPECT_EQ(-22, qe_get_last_error()) << n;
        config_destruct(&c);
    }
}
