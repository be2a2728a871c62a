// A second, naive reader of buffer files. It says for any bytes, damaged ones too, what the library
// has to answer: the code, or that it aborts, and what was read before.
#ifndef VESK_TESTS_COMMON_MODEL_BUFFER_READER_HPP
#define VESK_TESTS_COMMON_MODEL_BUFFER_READER_HPP

#include <cstdint>
#include <string>

#include "common/zlib_streams.hpp"

// Instead of a code: a precondition ends the process.
inline constexpr int model_aborts = 1;

class model_buffer_reader
{
public:
    explicit model_buffer_reader(std::string_view file)
    {
        for (const zlib_stream &stream : split_zlib_streams(file)) {
            content_ += stream.content;
            damaged_ = stream.damaged;
            damage_shows_early_ = stream.damage_shows_early;
            torn_ = !stream.complete;
        }
    }

    // Opens a file that has to be of `kind` and reads it to its end: 0, a code or model_aborts.
    int read_all(uint32_t kind)
    {
        try {
            open();
            if (kind_ != kind) {
                return -3;
            }
            opened_ = true;
            while (true) {
                if (kind_ == 1 && values_ > capacity_) {
                    return -6;
                }
                if (!read_record()) {
                    whole_ = !torn_;
                    return 0;
                }
            }
        } catch (const failure &stopped) {
            return stopped.code == -43 && opened_ ? 0 : stopped.code;
        }
    }

    // Whether opening succeeds, whatever comes behind the first record.
    bool opened() const { return opened_; }
    uint32_t values() const { return values_; }
    // Whether the file was read to its end and has no torn end that reading takes for a clean one.
    bool is_whole() const { return whole_; }

private:
    struct failure {
        int code;
    };

    // The bytes that one read gets.
    std::string read(std::size_t n)
    {
        const std::size_t left = content_.size() - position_;
        if (damaged_ && (n > left || (n == left && damage_shows_early_))) {
            throw failure{-41};
        }
        const std::string bytes = content_.substr(position_, n);
        position_ += bytes.size();
        return bytes;
    }
    static uint32_t number(const std::string &bytes)
    {
        uint32_t value = 0;
        for (const char c : bytes) {
            value = value << 8 | static_cast<uint8_t>(c);
        }
        return value;
    }
    uint32_t field(std::size_t n)
    {
        const std::string bytes = read(n);
        if (bytes.size() < n) {
            throw failure{-48};
        }
        return number(bytes);
    }
    static void require(bool condition, int code)
    {
        if (!condition) {
            throw failure{code};
        }
    }
    void version(uint32_t lowest, uint32_t highest)
    {
        version_ = field(1);
        require(version_ >= lowest && version_ <= highest, -12);
    }
    void timestamp()
    {
        version(1, 1);
        field(4);
        require(field(4) == 0, -6);
    }
    void string()
    {
        const std::string stored = read(4);
        require(!stored.empty(), -43);
        require(stored.size() == 4, -48);
        const uint32_t length = number(stored);
        require(length >= 1 && length <= 10000, -6);
        const std::string text = read(length);
        require(!text.empty(), model_aborts);
        require(text.size() == length, -48);
        require(text.find('\0') == std::string::npos, -6);
    }

    void open()
    {
        kind_ = field(4);
        require(kind_ == 1 || kind_ == 2, -4);
        try {
            version(1, 1);
            capacity_ = field(4);
            require(capacity_ != 0 && capacity_ % 2 == 0, -6);
        } catch (const failure &) {
            throw failure{-41};
        }
        try {
            require(!read_record() || type_ == 1, -4);
        } catch (const failure &stopped) {
            require(stopped.code == -43, stopped.code);
            torn_ = true;
        }
    }
    // False at the end.
    bool read_record()
    {
        const std::string stored = read(4);
        if (stored.empty()) {
            return false;
        }
        require(stored.size() == 4, -48);
        type_ = number(stored);
        require(type_ >= 1 && type_ <= (kind_ == 1 ? 3 : 2), -6);
        if (type_ == 1) {
            names();
        } else if (type_ == 3) {
            event();
        } else {
            kind_ == 1 ? sample() : interval();
            ++values_;
        }
        return true;
    }
    void names()
    {
        version(1, 1);
        timestamp();
        version(1, 1);
        const uint32_t count = field(4);
        require(count >= 1 && count <= 10000, -49);
        for (uint32_t i = 0; i < count; ++i) {
            version(1, 1);
            string();
        }
    }
    void sample()
    {
        version(1, 1);
        timestamp();
        for (uint32_t i = value_count(); i > 0; --i) {
            field(4);
        }
    }
    void event()
    {
        version(1, 1);
        field(4);
        timestamp();
        string();
    }
    void interval()
    {
        version(1, 2);
        const uint32_t interval_version = version_;
        timestamp();
        timestamp();
        for (uint32_t i = value_count(); i > 0; --i) {
            version(1, 1);
            for (int j = 0; j < 9; ++j) {
                field(4);
            }
        }
        if (interval_version == 2) {
            version(1, 1);
            field(4);
            const std::string second = read(4);
            require(!second.empty(), model_aborts);
            require(second.size() == 4, -48);
            field(4);
            field(4);
            field(4);
        }
    }
    uint32_t value_count()
    {
        const uint32_t count = field(4);
        require(count >= 1 && count <= 10000, -6);
        return count;
    }

    std::string content_;
    std::size_t position_ = 0;
    bool damaged_ = false;
    bool damage_shows_early_ = false;
    bool torn_ = false;
    bool opened_ = false;
    bool whole_ = false;
    uint32_t kind_ = 0;
    uint32_t capacity_ = 0;
    uint32_t version_ = 0;
    uint32_t type_ = 0;
    uint32_t values_ = 0;
};

#endif
