// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace qz_recon
{

/// Help without what the parser adds to the names: the values of flags, and the numbers behind choices.
class PlainFormatter : public CLI::Formatter
{
    std::string make_option_name(CLI::Option const * option, bool isPositional) const override
    {
        std::string name = CLI::Formatter::make_option_name(option, isPositional);
        std::string const value = "{false}";
        for (std::size_t at; (at = name.find(value)) != std::string::npos;)
            name.erase(at, value.size());
        return name;
    }
};

} // namespace qz_recon
