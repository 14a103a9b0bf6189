// SPDX-License-Identifier: Apache-2.0
// What is written to files while the system's calls fail, at each call in turn: a file that is replaced is
// the old one or the new one, complete, whatever happens and also after a loss of power; who asked for it is
// told why not.
#include <QZmath/Files/Files.h>
#include <QZmath/LinSys/SparseVector.h>
#include <QZmath/Persistence/ComponentFilters.h>
#include <QZmath/Persistence/Documents.h>
#include <QZmath/Persistence/ExternVector.h>
#include <QZsys/Exceptions.h>

#ifdef QZ_WITH_PROGRAM
#include <apps/qzrecon/RunLog.h>
#endif
#include <support/FaultyFiles.h>
#include <support/TestFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace
{

using qz_test::DiskState;
using Faulty = qz_test::FaultyFiles;

Faulty::Fault const st_none = {"none", 0, 0, false};
Faulty::Fault const st_death = {"death", Faulty::all, Faulty::death, false};
Faulty::Fault const st_faults[] = {
    {"short write", Faulty::writing, Faulty::halved, false},
    {"interrupted write", Faulty::writing | Faulty::closing, EINTR, false},
    {"interrupted call", Faulty::opening | Faulty::syncing | Faulty::renaming, EINTR, false},
    {"full disk", Faulty::opening | Faulty::writing | Faulty::syncing | Faulty::closing, ENOSPC, true},
    {"disk that is full once", Faulty::writing, ENOSPC, false},
    {"failing disk", Faulty::all, EIO, false},
    {"failed disk", Faulty::all, EIO, true},
    {"no descriptor", Faulty::opening, EMFILE, false},
};
bool goesUnnoticed(Faulty::Fault const & fault)
{
    return fault.error == Faulty::halved || (fault.error == EINTR && (fault.calls & Faulty::writing) != 0);
}

std::size_t openFiles()
{
    return std::size_t(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Something that replaces files of a folder; `state` 0 or 1 chooses between two contents.
struct Saver
{
    char const * name;
    std::vector<std::string> files; // in the order in which they get their places
    std::function<void(Saver const &, std::string const & folder, int state)> save;
    bool writesItself = true; // the C library's own calls, below `fwrite`, cannot be failed here
};

QZmath::TriangleMesh meshOf(int state)
{
    QZmath::TriangleMesh mesh;
    int const size = 20 + 10 * state;
    for (int y = 0; y <= size; ++y)
        for (int x = 0; x <= size; ++x) {
            mesh.positions.insert(mesh.positions.end(), {float(x), float(y) / 3, float(state)});
            int const corner = y * (size + 1) + x;
            if (x < size && y < size)
                mesh.triangles.insert(mesh.triangles.end(), {corner, corner + 1, corner + size + 1});
        }
    return mesh;
}
void saveMesh(Saver const & saver, std::string const & folder, int state)
{
    QZmath::writeMesh(meshOf(state), folder + "/" + saver.files.back());
}
void savePoints(Saver const & saver, std::string const & folder, int state)
{
    QZmath::TriangleMesh const mesh = meshOf(state);
    QZmath::PointCloudView cloud;
    cloud.size = mesh.vertexCount();
    cloud.positions = mesh.positions.data();
    QZmath::writePoints(cloud, folder + "/" + saver.files.back());
}
#ifdef QZ_WITH_PROGRAM
// The files of a run of the program, as it writes them.
void saveRun(Saver const &, std::string const & folder, int state)
{
    QZmath::PendingFiles files;
    qz_recon::RunLog log(folder + "/run.log", files);
    for (int line = 0; line < 5000; ++line)
        log.getMessage(state == 0 ? "a line of an old log" : "a line of the new log");
    QZmath::writeMesh(meshOf(state), folder + "/mesh.ply", QZmath::MeshFormat::ply, files);
    log.close();
    files.commit();
}
#endif

class Bytes : public VsF::IComponentFilter
{
public:
    explicit Bytes(IVescaBinaryStream & stream, char byte = 'x') : m_stream(stream), m_byte(byte) {}

private:
    std::int64_t OnSave() override
    {
        for (int piece = 0; piece < 40; ++piece)
            m_stream.writeData(100, std::string(100, m_byte).data());
        return 4000;
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger &) override { return 0; }
    std::wstring OnGetComponentName() const override { return L"bytes"; }
    std::string OnGetBlockMark() const override { return "Bytes"; }
    int OnGetVersion() const override { return 1; }
    IVescaBinaryStream & OnGetStream() override { return m_stream; }

    IVescaBinaryStream & m_stream;
    char const m_byte;
};

void saveDocument(Saver const & saver, std::string const & folder, int state)
{
    try {
        VsF::CDocumentSaver document(folder + "/" + saver.files.back());
        for (char const byte : {'a', 'b'})
            document.Save(std::make_unique<Bytes>(document.GetStream(), char(byte + 2 * state)));
        document.Commit();
    } catch (CVescaException const & error) {
        throw QZmath::OutputError(error.what());
    }
}

class FileFault : public testing::TestWithParam<Saver>
{
protected:
    FileFault()
    {
        for (int state : {0, 1}) {
            save(state);
            contents[state] = present();
        }
    }
    void save(int state) const { GetParam().save(GetParam(), folder.path(""), state); }
    DiskState present() const
    {
        DiskState result;
        for (std::string const & name : folder.files())
            result[name] = folder.contents(name);
        return result;
    }
    // Each file is old or new, and none is new before those that it refers to; `inAll` how many are new.
    void expectWhole(DiskState const & state, std::string const & when, std::size_t * inAll = nullptr) const
    {
        std::size_t isNew = 0;
        for (std::string const & name : GetParam().files) {
            std::string const text = state.count(name) != 0 ? state.at(name) : "none";
            bool const isThisNew = text == contents[1].at(name);
            ASSERT_TRUE(isThisNew || text == contents[0].at(name)) << name << " " << when;
            ASSERT_TRUE(!isThisNew || isNew == std::size_t(&name - GetParam().files.data()))
                << name << " " << when;
            isNew += isThisNew;
        }
        if (inAll != nullptr)
            *inAll = isNew;
    }

    bool const isInMemory = qz_test::keepTestFoldersInMemory();
    qz_test::TestFolder const folder;
    DiskState contents[2];
};

TEST_P(FileFault, LeavesTheOldOrTheNewFile)
{
    std::size_t const descriptors = openFiles();
    for (Faulty::Fault const & fault : st_faults) {
        bool isHit = true;
        for (long number = 1; isHit; ++number) {
            std::string const when = fault.name + (" at call " + std::to_string(number));
            save(0);
            std::string told;
            Faulty::begin(fault, number);
            try {
                save(1);
            } catch (QZmath::OutputError const & error) {
                told = error.what();
            }
            isHit = Faulty::end();
            ASSERT_TRUE(isHit || number > 1 || !GetParam().writesItself) << when;
            std::size_t isNew = 0;
            expectWhole(present(), when, &isNew);
            ASSERT_EQ(present().size(), GetParam().files.size()) << when; // nothing is left beside
            ASSERT_EQ(openFiles(), descriptors) << when;
            if (told.empty()) {
                EXPECT_EQ(isNew, GetParam().files.size()) << when;
            } else {
                EXPECT_TRUE(isHit && !goesUnnoticed(fault)) << when << ": " << told;
                EXPECT_THAT(told, testing::EndsWith(std::string(": ") + std::strerror(fault.error))) << when;
            }
        }
    }
}

TEST_P(FileFault, DeathLeavesTheOldOrTheNewFile)
{
    int status = 1;
    for (long number = 1; status != 0x200; ++number) {
        save(0);
        pid_t const child = fork();
        if (child == 0) {
            Faulty::begin(st_death, number);
            save(1);
            _exit(Faulty::end() ? 1 : 2);
        }
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(status == 0 || status == 0x200) << status;
        expectWhole(present(), "death at call " + std::to_string(number));
        for (std::string const & name : folder.files())
            if (contents[0].count(name) == 0)
                std::filesystem::remove(folder.path(name));
    }
}

TEST_P(FileFault, LossOfPowerLeavesTheOldOrTheNewFile)
{
    save(0);
    Faulty::begin(st_none, 1, folder.path(""));
    save(1);
    Faulty::end();
    std::vector<DiskState> const states = Faulty::statesAfterPowerLoss(contents[0]);
    EXPECT_GT(states.size(), 10u);
    for (DiskState const & state : states)
        expectWhole(state, "after a loss of power");
    EXPECT_TRUE(Faulty::certainState(contents[0]) == contents[1]); // who is told of success can rely on it
}

std::vector<Saver> const st_savers = {
    {"ply", {"mesh.ply"}, saveMesh},
    {"obj", {"mesh.obj"}, saveMesh},
    {"stl", {"mesh.stl"}, saveMesh},
    {"glb", {"mesh.glb"}, saveMesh},
    {"gltf", {"mesh.bin", "mesh.gltf"}, saveMesh},
    {"points_ply", {"cloud.ply"}, savePoints},
    {"points_csv", {"cloud.csv"}, savePoints},
    {"document", {"document"}, saveDocument, false},
#ifdef QZ_WITH_PROGRAM
    {"run", {"mesh.ply", "run.log"}, saveRun},
#endif
};

INSTANTIATE_TEST_SUITE_P(, FileFault, testing::ValuesIn(st_savers),
                         [](auto const & saver) { return std::string(saver.param.name); });

// Saves into files of the caller's, which some calls fail: the failure is told, by the saving or by the flush
// behind it, and never as a success.
struct CallersFile
{
    char const * name;
    std::function<bool(std::FILE *)> save; // gives false or throws CVescaException
};

CallersFile const st_callersFiles[] = {
    {"components",
     [](std::FILE * file) {
         CFileBinaryStream stream(file);
         return VsF::CInnerHeaderWrapper(new Bytes(stream), nullptr, L"").Save() == 4128;
     }},
    {"sparse_vector",
     [](std::FILE * file) {
         REmath::CSparseVectorTmpl<double> vector;
         for (int i = 0; i < 1000; ++i)
             vector.SetElementNoIdxSearch(2 * i, i);
         return vector.SaveToFile(file);
     }},
};

class CallersFileFault : public testing::TestWithParam<CallersFile>
{};

TEST_P(CallersFileFault, IsTold)
{
    qz_test::TestFolder const folder;
    auto const save = [&] {
        struct Closer
        {
            void operator()(std::FILE * opened) const { std::fclose(opened); }
        };
        std::unique_ptr<std::FILE, Closer> const file(qz_test::openFaulty(folder.path("file")));
        char buffer[256];
        std::setvbuf(file.get(), buffer, _IOFBF, sizeof buffer);
        bool isSaved = false;
        try {
            isSaved = GetParam().save(file.get());
        } catch (CVescaException const & error) {
            EXPECT_THAT(error.what(), testing::HasSubstr("Impossible write to file"));
        }
        return std::fflush(file.get()) == 0 && isSaved;
    };
    ASSERT_TRUE(save());
    std::string const whole = folder.contents("file");
    for (Faulty::Fault fault : st_faults) {
        fault.calls &= Faulty::writing;
        for (long number = 1; fault.calls != 0; ++number) {
            Faulty::begin(fault, number);
            bool const isSaved = save();
            if (!Faulty::end())
                break;
            // The C library takes an interruption for a failure.
            EXPECT_EQ(isSaved, fault.error == Faulty::halved) << fault.name << number;
            EXPECT_EQ(folder.contents("file") == whole, isSaved) << fault.name << number;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, CallersFileFault, testing::ValuesIn(st_callersFiles),
                         [](auto const & saver) { return std::string(saver.param.name); });

// An external vector stays as after the last completed step, and the step can be repeated.
TEST(ExternVectorFault, EachStepCanBeRepeated)
{
    std::size_t const descriptors = openFiles();
    for (Faulty::Fault const & fault : st_faults) {
        bool isHit = true;
        for (long number = 1; isHit; ++number) {
            std::unique_ptr<VescaExtVec::ExternVectorVoidInterface> const vector(
                VescaExtVec::CreateExternVectorVoid(sizeof(int)));
            VescaExtVec::ElementHandle handle = nullptr;
            int const seven = 7;
            std::function<void()> const steps[] = {
                [&] { vector->reserve(10); },
                [&] { vector->resize(50000, &seven); },
                [&] { *static_cast<int *>(vector->lockElement(40000, &handle)) = 8; },
                [&] { vector->releaseElement(true, &handle); },
                [&] { vector->resize(90000); },
            };
            int failures = 0;
            Faulty::begin(fault, number);
            for (auto const & step : steps) {
                try {
                    step();
                } catch (std::bad_alloc const & error) {
                    ++failures;
                    EXPECT_STREQ(error.what(), "bad allocation");
                    isHit = Faulty::end();
                    step();
                }
            }
            isHit = failures > 0 || Faulty::end();
            EXPECT_TRUE(failures == 0 || !goesUnnoticed(fault)) << fault.name << number;
            for (auto const & [index, expected] : {std::pair{39999, 7}, {40000, 8}, {49999, 7}, {50000, 0}}) {
                EXPECT_EQ(*static_cast<int *>(vector->lockElement(std::size_t(index), &handle)), expected)
                    << fault.name << number;
                vector->releaseElement(false, &handle);
            }
        }
    }
    EXPECT_EQ(openFiles(), descriptors);
}

} // namespace
