// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Persistence/ComponentFilters.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qz_test
{

using Bytes = std::vector<unsigned char>;

struct Log : VsF::ISaveLoadLog
{
    std::vector<std::wstring> lines;

private:
    void OnWriteLogMess(IVescaWarning const & warning, VsF::LogLevel level) override
    {
        EXPECT_EQ(int(level), 2);
        lines.push_back(warning.getMessage());
    }
};

struct Logger : VsF::IDeltaStateLogger
{
    int ends = 0;

private:
    VsF::DocumentNewObjectProcessStatus OnProcessNewObject(VsF::INewObjEvent &) override
    {
        return VsF::newObjectAccepted;
    }
    void OnFinalizeLoading() override { ++ends; }
};

// Data of a known length; its saving can break off, its loading can take less.
struct Blob : VsF::IComponentFilter
{
    Blob(IVescaBinaryStream & target, std::string name, int number, Bytes content)
        : data(std::move(content)), stream(target), blockMark(std::move(name)), version(number)
    {}

    Bytes data;
    bool breaksOff = false;
    std::size_t leaves = 0;
    bool loaded = false;

private:
    std::int64_t OnSave() override
    {
        if (breaksOff)
            throw VsF::CFileWriteError();
        stream.writeData(data.size(), data.data());
        return std::int64_t(data.size());
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger &) override
    {
        Bytes read(data.size() - leaves);
        stream.readData(read.size(), read.data());
        loaded = read == data;
        return std::int64_t(read.size());
    }
    std::wstring OnGetComponentName() const override { return L"blob"; }
    std::string OnGetBlockMark() const override { return blockMark; }
    int OnGetVersion() const override { return version; }
    IVescaBinaryStream & OnGetStream() override { return stream; }

    IVescaBinaryStream & stream;
    std::string blockMark;
    int version;
};

} // namespace qz_test
