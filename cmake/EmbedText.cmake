# SPDX-License-Identifier: Apache-2.0
# Makes a source file of a text file: cmake -D INPUT=... -D OUTPUT=... -P EmbedText.cmake
# The text comes in pieces, because compilers end string literals at 64 kB.
file(READ "${INPUT}" text)
string(LENGTH "${text}" length)
set(pieces "")
set(at 0)
while(at LESS length)
    string(SUBSTRING "${text}" ${at} 16000 piece)
    string(APPEND pieces "        R\"__text__(${piece})__text__\",\n")
    math(EXPR at "${at} + 16000")
endwhile()
file(WRITE "${OUTPUT}" "// Made by EmbedText.cmake.
#include <QZmath/Viewer/Page/BuiltPage.h>

namespace QZmath::Viewing
{

std::vector<std::string_view> builtPage()
{
    return {
${pieces}    };
}

} // namespace QZmath::Viewing
")
