// SPDX-License-Identifier: Apache-2.0

// Saving and loading of a component of 1 GiB beside a loop of plain `write` and `read` calls with blocks of
// the same size, the same component in a document with and without checksums, and a pass over an external
// vector beside one of plain `fread` over a file of the same content. The files lie in the folder that TMPDIR
// names (/tmp without one) and stay in the page cache.

#include <QZmath/Persistence/Documents.h>
#include <QZmath/Persistence/ExternVector.h>
#include <QZsys/TemporaryFile.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

constexpr std::int64_t componentBytes = std::int64_t(1) << 30;

struct Logger : VsF::IDeltaStateLogger
{
private:
    VsF::DocumentNewObjectProcessStatus OnProcessNewObject(VsF::INewObjEvent &) override
    {
        return VsF::newObjectAccepted;
    }
    void OnFinalizeLoading() override {}
};

// A gibibyte, written and read by blocks.
struct Blocks : VsF::IComponentFilter
{
    Blocks(IVescaBinaryStream & target, std::vector<char> & memory) : stream(target), block(memory) {}

private:
    std::int64_t OnSave() override
    {
        for (std::int64_t done = 0; done < componentBytes; done += std::int64_t(block.size()))
            stream.writeData(block.size(), block.data());
        return componentBytes;
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger &) override
    {
        for (std::int64_t done = 0; done < componentBytes; done += std::int64_t(block.size()))
            stream.readData(block.size(), block.data());
        return componentBytes;
    }
    std::wstring OnGetComponentName() const override { return L""; }
    std::string OnGetBlockMark() const override { return "Blocks"; }
    int OnGetVersion() const override { return 1; }
    IVescaBinaryStream & OnGetStream() override { return stream; }

    IVescaBinaryStream & stream;
    std::vector<char> & block;
};

CFileWrapClose openFile() { return CFileWrapClose(VsUt::openTemporaryFile("QZmathBenchmark")); }

void check(bool isGood)
{
    if (!isGood)
        std::abort(); // no figure is better than a wrong one
}

// A gibibyte over the file as it stands, in blocks, without a buffer between.
void writePlainly(std::FILE * file, std::vector<char> const & block)
{
    ::lseek(::fileno(file), 0, SEEK_SET);
    for (std::int64_t done = 0; done < componentBytes; done += std::int64_t(block.size()))
        check(::write(::fileno(file), block.data(), block.size()) == ssize_t(block.size()));
}

void save(benchmark::State & state)
{
    std::vector<char> block(std::size_t(state.range(0)), 'x');
    CFileWrapClose const file = openFile();
    writePlainly(file.FilePtr(), block); // the disk is chosen before the clock runs
    CFileBinaryStream stream(file.FilePtr());
    VsF::CInnerHeaderWrapper component(new Blocks(stream, block), nullptr, L"");
    for (auto _ : state) {
        std::rewind(file.FilePtr());
        component.Save();
        std::fflush(file.FilePtr());
    }
    state.SetBytesProcessed(state.iterations() * componentBytes);
}

void savePlainly(benchmark::State & state)
{
    std::vector<char> block(std::size_t(state.range(0)), 'x');
    CFileWrapClose const file = openFile();
    writePlainly(file.FilePtr(), block);
    for (auto _ : state)
        writePlainly(file.FilePtr(), block);
    state.SetBytesProcessed(state.iterations() * componentBytes);
}

void load(benchmark::State & state)
{
    std::vector<char> block(std::size_t(state.range(0)), 'x');
    CFileWrapClose const file = openFile();
    CFileBinaryStream stream(file.FilePtr());
    VsF::CInnerHeaderWrapper component(new Blocks(stream, block), nullptr, L"");
    component.Save();
    Logger logger;
    for (auto _ : state) {
        std::rewind(file.FilePtr());
        component.Load(logger);
    }
    state.SetBytesProcessed(state.iterations() * componentBytes);
}

void loadPlainly(benchmark::State & state)
{
    std::vector<char> block(std::size_t(state.range(0)), 'x');
    CFileWrapClose const file = openFile();
    writePlainly(file.FilePtr(), block);
    for (auto _ : state) {
        ::lseek(::fileno(file.FilePtr()), 0, SEEK_SET);
        for (std::int64_t done = 0; done < componentBytes; done += std::int64_t(block.size()))
            check(::read(::fileno(file.FilePtr()), block.data(), block.size()) == ssize_t(block.size()));
    }
    state.SetBytesProcessed(state.iterations() * componentBytes);
}

// The argument is 1 with checksums.
std::string documentOf(benchmark::State const & state)
{
    std::string const name =
        "QZmathBenchmark" + std::to_string(::getpid()) + "-" + std::to_string(state.range(0));
    return std::filesystem::temp_directory_path() / name;
}

void saveOnce(std::string const & path, benchmark::State const & state, std::vector<char> & block)
{
    VsF::CDocumentSaver saver(path, VsF::DocumentChecksums(state.range(0)));
    saver.Save(std::make_unique<Blocks>(saver.GetStream(), block));
    saver.Commit();
}

void saveDocument(benchmark::State & state)
{
    std::vector<char> block(std::size_t(1) << 20, 'x');
    std::string const path = documentOf(state);
    for (auto _ : state)
        saveOnce(path, state, block);
    std::filesystem::remove(path);
    state.SetBytesProcessed(state.iterations() * componentBytes);
}

void loadDocument(benchmark::State & state)
{
    std::vector<char> block(std::size_t(1) << 20, 'x');
    std::string const path = documentOf(state);
    saveOnce(path, state, block);
    Logger logger;
    for (auto _ : state) {
        VsF::CDocumentLoader loader(path);
        loader.Load(std::make_unique<Blocks>(loader.GetStream(), block), logger);
    }
    std::filesystem::remove(path);
    state.SetBytesProcessed(state.iterations() * componentBytes);
}

// Elements of a vector of 256 MiB, by their size.
std::size_t elementCount(benchmark::State const & state)
{
    return (std::size_t(1) << 28) / std::size_t(state.range(0));
}

void vectorPass(benchmark::State & state)
{
    std::size_t const elementSize = std::size_t(state.range(0));
    std::size_t const count = elementCount(state);
    std::unique_ptr<VescaExtVec::ExternVectorVoidInterface> const vector(
        VescaExtVec::CreateExternVectorVoid(elementSize));
    std::vector<char> const fill(elementSize, 'x');
    vector->resize(count, fill.data());
    for (auto _ : state) {
        for (std::size_t index = 0; index < count; ++index) {
            VescaExtVec::ElementHandle handle;
            benchmark::DoNotOptimize(static_cast<char *>(vector->lockElement(index, &handle))[0]);
            vector->releaseElement(false, &handle);
        }
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(count * elementSize));
}

void freadPass(benchmark::State & state)
{
    std::size_t const elementSize = std::size_t(state.range(0));
    std::size_t const count = elementCount(state);
    CFileWrapClose const file = openFile();
    std::vector<char> element(elementSize, 'x');
    for (std::size_t index = 0; index < count; ++index)
        check(std::fwrite(element.data(), elementSize, 1, file.FilePtr()) == 1);
    for (auto _ : state) {
        std::rewind(file.FilePtr());
        for (std::size_t index = 0; index < count; ++index) {
            check(std::fread(element.data(), elementSize, 1, file.FilePtr()) == 1);
            benchmark::DoNotOptimize(element[0]);
        }
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(count * elementSize));
}

BENCHMARK(savePlainly)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(save)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(loadPlainly)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(load)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(saveDocument)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(loadDocument)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(freadPass)->Arg(64)->Arg(1024)->Arg(1 << 16)->Unit(benchmark::kMillisecond);
BENCHMARK(vectorPass)->Arg(64)->Arg(1024)->Arg(1 << 16)->Unit(benchmark::kMillisecond);

} // namespace
