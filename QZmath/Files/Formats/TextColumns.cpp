// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/TextColumns.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PointReader.h>

#include <algorithm>
#include <utility>

namespace QZmath
{

namespace
{

struct Name
{
    char const * text;
    int role;
};

// The first of a role is the one that is shown.
constexpr Name st_names[] = {{"x", TextColumns::position},
                             {"y", TextColumns::position + 1},
                             {"z", TextColumns::position + 2},
                             {"nx", TextColumns::normal},
                             {"ny", TextColumns::normal + 1},
                             {"nz", TextColumns::normal + 2},
                             {"r", TextColumns::color},
                             {"g", TextColumns::color + 1},
                             {"b", TextColumns::color + 2},
                             {"boundary", TextColumns::boundary},
                             {"_", TextColumns::none},
                             {"intensity", TextColumns::none},
                             {"red", TextColumns::color},
                             {"green", TextColumns::color + 1},
                             {"blue", TextColumns::color + 2},
                             {"normal_x", TextColumns::normal},
                             {"normal_y", TextColumns::normal + 1},
                             {"normal_z", TextColumns::normal + 2},
                             {"normalx", TextColumns::normal},
                             {"normaly", TextColumns::normal + 1},
                             {"normalz", TextColumns::normal + 2}};

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    for (char & letter : lower)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return lower;
}

bool findRole(std::string_view word, int & role)
{
    std::string const lower = lowerCase(word);
    for (Name const & name : st_names)
        if (lower == name.text) {
            role = name.role;
            return true;
        }
    return false;
}

} // namespace

bool TextColumns::has(int role) const
{
    return std::find(roleOf.begin(), roleOf.end(), role) != roleOf.end();
}

std::size_t TextColumns::wanted() const
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < roleOf.size(); ++i)
        if (roleOf[i] != none)
            count = i + 1;
    return count;
}

std::string TextColumns::text() const
{
    std::string all;
    for (int const role : roleOf) {
        auto const * const name = std::find_if(std::begin(st_names), std::end(st_names),
                                               [&](Name const & n) { return n.role == role; });
        all += (all.empty() ? "" : ",") + std::string(name->text);
    }
    return all;
}

TextColumns TextColumns::fromNames(std::string const & names)
{
    std::string const option = "--columns \"" + quotable(names) + "\" ";
    std::size_t const most = 1000;
    TextColumns columns;
    std::string_view rest = names;
    for (bool isLast = false; !isLast;) {
        std::size_t const comma = rest.find(',');
        isLast = comma == std::string_view::npos;
        std::string_view const word = rest.substr(0, comma);
        rest.remove_prefix(isLast ? rest.size() : comma + 1);
        int role = none;
        if (!findRole(word, role))
            throw InputError(option + "has the unknown name \"" + quotable(word) +
                             "\"; known are x, y, z, nx, ny, nz, r, g, b, boundary, intensity and _");
        if (role != none && columns.has(role))
            throw InputError(option + "has \"" + quotable(word) + "\" twice");
        if (columns.roleOf.size() == most)
            throw InputError(option + "has more than 1000 names");
        columns.roleOf.push_back(role);
    }
    if (!columns.hasThree(position))
        throw InputError(option + "has to name x, y and z");
    for (int const role : {normal, color})
        if (!columns.hasThree(role) && (columns.has(role) || columns.has(role + 1) || columns.has(role + 2)))
            throw InputError(option + "has to name all or none of " +
                             (role == normal ? "nx, ny and nz" : "r, g and b"));
    return columns;
}

TextColumns TextColumns::fromHeader(std::vector<std::string_view> const & words, bool isComment)
{
    TextColumns columns;
    for (std::string_view word : words) {
        while (word.size() > 1 && (word.front() == '"' || word.front() == '\''))
            word.remove_prefix(1);
        while (word.size() > 1 && (word.back() == '"' || word.back() == '\''))
            word.remove_suffix(1);
        int role = none;
        findRole(word, role);
        if (role != none && columns.has(role))
            return TextColumns();
        columns.roleOf.push_back(role);
    }
    auto const x = std::find(columns.roleOf.begin(), columns.roleOf.end(), int(position));
    bool const isSideBySide = columns.roleOf.end() - x >= 3 && x[1] == position + 1 && x[2] == position + 2;
    if (!columns.hasThree(position) || (isComment && !isSideBySide))
        return TextColumns();
    for (int const first : {normal, color})
        if (!columns.hasThree(first))
            for (int & role : columns.roleOf)
                if (role >= first && role < first + 3)
                    role = none;
    return columns;
}

void checkColumns(std::string const & columns)
{
    if (!columns.empty())
        TextColumns::fromNames(columns);
}

} // namespace QZmath
