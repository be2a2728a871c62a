// Tells from an engine's reply whether a request was taken, whether the same one may be taken
// later, or whether it never will be.
#ifndef VESK_CLI_PUSH_REPLY_CLASS_HPP
#define VESK_CLI_PUSH_REPLY_CLASS_HPP

#include <string>
#include <string_view>

#include "push/target.hpp"

namespace cli
{

enum class reply_class { taken, passing, permanent };

// @p status is that of HTTP, @p text the reply as it came.
reply_class classify_reply(engine_kind engine, long status, std::string_view text);

// The code of an exception of ClickHouse ("Code: 60, ..."); 0 where the text is none.
int clickhouse_code(std::string_view text);

// Whether a store of metrics has refused a point for its time: too old, or not behind the others of
// its series.
bool tells_wrong_time(std::string_view text);

// The reply for people: one printable line of bounded length.
std::string reply_words(long status, std::string_view text);

} // namespace cli

#endif
