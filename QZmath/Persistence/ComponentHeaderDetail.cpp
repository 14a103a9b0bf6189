// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/ComponentHeaderDetail.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Messages.h>

#include <algorithm>
#include <cstring>

namespace VsF
{

namespace
{

constexpr char mark[] = "VsCmpWrp"; // its zero byte belongs to the comparison

} // namespace

ComponentHeader::ComponentHeader(IComponentFilter const & filter)
{
    std::string const name = filter.GetBlockMark();
    if (name.size() >= reservedOffset - blockMarkOffset || name.find('\0') != std::string::npos)
        throw CVescaException("Block mark does not fit into the header of a component: " + name);
    setMark();
    store(sizeOffset, ~std::uint64_t{0});
    store(versionOffset, static_cast<std::uint32_t>(filter.GetVersion()));
    std::copy(name.begin(), name.end(), bytes.begin() + blockMarkOffset);
}

void ComponentHeader::setMark() { std::memcpy(bytes.data(), mark, sizeof mark); }

bool ComponentHeader::hasMark() const { return std::memcmp(bytes.data(), mark, sizeof mark) == 0; }

std::string ComponentHeader::blockMark() const
{
    auto const begin = bytes.begin() + blockMarkOffset;
    return std::string(begin, std::find(begin, bytes.begin() + reservedOffset, 0));
}

std::string ComponentHeader::whyUnknown() const
{
    if (!hasMark()) {
        std::string const found(bytes.begin(), bytes.begin() + sizeof mark);
        return "\"" + VsUt::quotable(found) + "\" begins no component";
    }
    return describe() + (size() == -1 ? std::string(" has no size: its saving broke off")
                                      : " has the size " + std::to_string(size()));
}

std::string ComponentHeader::describe() const
{
    return "the component \"" + VsUt::quotable(blockMark()) + "\" of version " + std::to_string(version());
}

} // namespace VsF
