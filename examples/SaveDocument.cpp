// SPDX-License-Identifier: Apache-2.0

// A document of three components is saved, and then read by an older program that knows only two of them: it
// skips the third by the size in its header, says so, and goes on. At last a bit of the file changes, and the
// document is refused instead of being loaded as something else.

#include <QZmath/Persistence/Documents.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

// What the filters have in common; each document part has a filter of its own.
class Filter : public VsF::IComponentFilter
{
public:
    Filter(IVescaBinaryStream & stream, std::string name, int version)
        : m_stream(stream), m_name(std::move(name)), m_version(version)
    {}

protected:
    IVescaBinaryStream & stream() { return m_stream; }

private:
    std::wstring OnGetComponentName() const override { return std::wstring(m_name.begin(), m_name.end()); }
    std::string OnGetBlockMark() const override { return m_name; }
    int OnGetVersion() const override { return m_version; }
    IVescaBinaryStream & OnGetStream() override { return m_stream; }

    IVescaBinaryStream & m_stream;
    std::string m_name;
    int m_version;
};

using Points = std::vector<std::array<double, 3>>;

class PointsFilter : public Filter
{
public:
    PointsFilter(IVescaBinaryStream & stream, Points & points) : Filter(stream, "Points", 2), m_points(points)
    {}

private:
    std::int64_t OnSave() override
    {
        std::uint64_t const count = m_points.size();
        stream().writeData(sizeof count, &count);
        stream().writeData(count * sizeof m_points[0], m_points.data());
        return std::int64_t(sizeof count + count * sizeof m_points[0]);
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger &) override
    {
        std::uint64_t count = 0;
        stream().readData(sizeof count, &count);
        // A damaged file may announce any number of points: memory is taken as they come.
        m_points.clear();
        while (m_points.size() < count) {
            std::size_t const have = m_points.size();
            m_points.resize(have + std::size_t(std::min<std::uint64_t>(count - have, 4096)));
            stream().readData((m_points.size() - have) * sizeof m_points[0], &m_points[have]);
        }
        return std::int64_t(sizeof count + count * sizeof m_points[0]);
    }

    Points & m_points;
};

// A component of a fixed length: the planes of a cut, or the title of the document.
template <class Content>
class FixedFilter : public Filter
{
public:
    FixedFilter(IVescaBinaryStream & stream, std::string name, int version, Content & content)
        : Filter(stream, std::move(name), version), m_content(content)
    {}

private:
    std::int64_t OnSave() override
    {
        stream().writeData(sizeof m_content, &m_content);
        return std::int64_t(sizeof m_content);
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger &) override
    {
        stream().readData(sizeof m_content, &m_content);
        return std::int64_t(sizeof m_content);
    }

    Content & m_content;
};

using Planes = std::array<double, 8>;
using Title = std::array<char, 32>;

class Log : public VsF::ISaveLoadLog
{
public:
    int warnings = 0;

private:
    void OnWriteLogMess(IVescaWarning const & warning, VsF::LogLevel) override
    {
        std::printf("warning: %ls\n", warning.getMessage().c_str());
        ++warnings;
    }
};

// Would take the objects that filters make into the document; these filters fill what they were given.
class Logger : public VsF::IDeltaStateLogger
{
public:
    bool finished = false;

private:
    VsF::DocumentNewObjectProcessStatus OnProcessNewObject(VsF::INewObjEvent &) override
    {
        return VsF::newObjectAccepted;
    }
    void OnFinalizeLoading() override { finished = true; }
};

// Until the commit, an older document of this name stays as it is.
void save(std::string const & path, Points points, Planes planes, Title title)
{
    VsF::CDocumentSaver saver(path);
    auto const saveOne = [&saver](std::unique_ptr<VsF::IComponentFilter> filter) {
        std::string const name = filter->GetBlockMark();
        long long const length = saver.Save(std::move(filter));
        std::printf("%s: %lld bytes with the header\n", name.c_str(), length);
    };
    saveOne(std::make_unique<PointsFilter>(saver.GetStream(), points));
    saveOne(std::make_unique<FixedFilter<Planes>>(saver.GetStream(), "Planes", 1, planes));
    saveOne(std::make_unique<FixedFilter<Title>>(saver.GetStream(), "Title", 1, title));
    saver.Commit();
}

// Knows nothing of planes. Where a component of another name or version stands, the filter stays unused.
void loadAsOldProgram(std::string const & path, Points & points, Title & title, Log & log, Logger & logger)
{
    VsF::CDocumentLoader loader(path); // throws when the document is damaged
    std::printf("the document is %s\n", loader.IsVerified() ? "what was saved" : "without checksums");
    loader.Load(std::make_unique<PointsFilter>(loader.GetStream(), points), logger, &log,
                L"the points are in an unknown form");
    loader.Load(nullptr, logger, &log, L"a part of the document is of a newer kind and was left out");
    loader.Load(std::make_unique<FixedFilter<Title>>(loader.GetStream(), "Title", 1, title), logger, &log,
                L"the title is in an unknown form");
    logger.FinalizeLoading();
}

bool isDamageFound(std::string const & path)
{
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(5000);
    char const sound = char(file.get());
    file.seekp(5000);
    file.put(char(sound ^ 1));
    file.close();
    try {
        VsF::CDocumentLoader loader(path);
    } catch (VsF::CDocumentError const & error) {
        std::printf("after a bit has changed: %s\n", error.what());
        return error.GetComponent() == 1;
    }
    return false;
}

} // namespace

int main()
{
    Points points(10000);
    for (std::size_t i = 0; i < points.size(); ++i) {
        double const angle = 0.01 * double(i);
        points[i] = {std::cos(angle), std::sin(angle), 1e-4 * double(i)};
    }
    Planes const planes = {0, 0, 1, -0.5, 1, 0, 0, 0.25};
    Title const title = {"A spring of ten thousand points"};

    Points loadedPoints;
    Title loadedTitle{};
    Log log;
    Logger logger;
    bool isGood = false;
    std::string const path =
        std::filesystem::temp_directory_path() / ("spring" + std::to_string(std::random_device()()));
    try {
        save(path, points, planes, title);
        loadAsOldProgram(path, loadedPoints, loadedTitle, log, logger);
        isGood = loadedPoints == points && loadedTitle == title && log.warnings == 1 && logger.finished &&
                 isDamageFound(path);
    } catch (CVescaException const & error) {
        std::printf("%s\n", error.what());
    }
    std::filesystem::remove(path);
    std::printf("loaded: \"%s\", %zu points\n", loadedTitle.data(), loadedPoints.size());
    return isGood ? 0 : 1;
}
