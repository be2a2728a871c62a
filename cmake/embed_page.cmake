# Writes the source that holds the parts of a page, run as a script at build time:
#
#   cmake -DOUT=FILE -DFRAME=FILE -DSTYLES=LIST -DSCRIPTS=LIST -DLIBRARY=FILE -DNOTICE=FILE
#         -P embed_page.cmake
#
# The files of a list are joined. LIBRARY and NOTICE may be empty. Scripts and styles also get the
# hash by which the page's content security policy knows them.

cmake_minimum_required(VERSION 3.25)

# The 32 bytes of a SHA-256, in base64 as browsers want it.
function(base64_of_hash hex result)
  set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  set(text "")
  foreach(place RANGE 0 63 3)
    string(SUBSTRING "${hex}00" ${place} 3 three)
    math(EXPR value "0x${three}")
    math(EXPR high "${value} / 64")
    math(EXPR low "${value} % 64")
    string(SUBSTRING ${digits} ${high} 1 first)
    string(SUBSTRING ${digits} ${low} 1 second)
    string(APPEND text ${first} ${second})
  endforeach()
  string(SUBSTRING ${text} 0 43 text)
  set(${result} "${text}=" PARENT_SCOPE)
endfunction()

# A function NAME() that returns the text, and NAME_hash().
function(embed name text)
  set(bytes "")
  set(hash "")
  if(NOT text STREQUAL "")
    file(WRITE "${OUT}.part" "${text}")
    file(READ "${OUT}.part" hex HEX)
    file(SHA256 "${OUT}.part" hash_hex)
    file(REMOVE "${OUT}.part")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
    base64_of_hash(${hash_hex} hash)
    set(hash "'sha256-${hash}'")
  endif()
  string(TOLOWER "${text}" small)
  if(NOT name STREQUAL "frame" AND small MATCHES "</(script|style)")
    message(FATAL_ERROR "The ${name} of a page must not hold the end of its element")
  endif()
  file(APPEND "${OUT}" "
namespace
{
constexpr unsigned char ${name}_bytes[] = {${bytes}0};
}
std::string_view ${name}()
{
    return {reinterpret_cast<const char *>(${name}_bytes), sizeof(${name}_bytes) - 1};
}
std::string_view ${name}_hash()
{
    return \"${hash}\";
}
")
endfunction()

function(join files result)
  set(all "")
  foreach(file ${files})
    file(READ "${file}" text)
    string(APPEND all "${text}")
  endforeach()
  set(${result} "${all}" PARENT_SCOPE)
endfunction()

string(REPLACE "|" ";" STYLES "${STYLES}")
string(REPLACE "|" ";" SCRIPTS "${SCRIPTS}")
join("${STYLES}" style)
join("${SCRIPTS}" script)
join("${LIBRARY}" library)
join("${NOTICE}" notice)
# A browser's tools would ask for a file that is not there.
string(REGEX REPLACE "//# sourceMappingURL=[^\n]*" "" library "${library}")

file(WRITE "${OUT}" "// Made by cmake/embed_page.cmake.
#include \"page/page_assets.hpp\"

namespace cli::page_assets
{
")
file(READ "${FRAME}" frame)
string(REGEX REPLACE "<!--.*-->\n" "" frame "${frame}")
embed(frame "${frame}")
embed(style "${style}")
embed(script "${script}")
embed(library "${library}")
embed(library_notice "${notice}")
file(APPEND "${OUT}" "
} // namespace cli::page_assets
")
