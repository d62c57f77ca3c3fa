#include "base/Platform.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <fstream>

#include "base/PosixPlatform.h"
#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex {
namespace {

TEST(Platform, JoinsPathsWithExactlyOneSeparator) {
  EXPECT_EQ(JoinPath("/bases", "KORVEL8.MDB"), "/bases/KORVEL8.MDB");
  EXPECT_EQ(JoinPath("/bases/", "KORVEL8.MDB"), "/bases/KORVEL8.MDB");
  EXPECT_EQ(JoinPath("C:\\bases\\", "x"), "C:\\bases\\x");
  EXPECT_EQ(JoinPath("", "x"), "/x");
  EXPECT_TRUE(HasSeparator("D:\\cfg\\libros.cfg"));
  EXPECT_TRUE(HasSeparator("cfg/libros.cfg"));
  EXPECT_FALSE(HasSeparator("libros.cfg"));
  EXPECT_EQ(NativePath("C:\\a\\b"), "C:/a/b");
}

TEST(Platform, FindsFilesRegardlessOfLetterCase) {
  testing::MemoryFileSystem fs;
  fs.files["/b/KORVEL8.MDB"] = "";
  fs.files["/b/estadisticas.mdb"] = "";
  fs.files["/c/Libros.cfg"] = "";
  fs.files["/c/LIBROS.CFG"] = "";
  EXPECT_EQ(FindFile(fs, "/b/KORVEL8.MDB"), "/b/KORVEL8.MDB");
  EXPECT_EQ(FindFile(fs, "/b/korvel8.mdb"), "/b/KORVEL8.MDB");
  EXPECT_EQ(FindFile(fs, "\\b\\estadisticas.MDB"), "/b/estadisticas.mdb");
  EXPECT_EQ(FindFile(fs, "/c/Libros.cfg"), "/c/Libros.cfg");
  EXPECT_EQ(FindFile(fs, "/c/libros.cfg"), std::nullopt);  // two candidates, none exact
  EXPECT_EQ(FindFile(fs, "/b/INDIZADO.MDB"), std::nullopt);
  EXPECT_EQ(FindFile(fs, ""), std::nullopt);
}

class PosixFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/orvex-platform-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { std::system(("rm -rf " + dir_).c_str()); }
  std::string dir_;
  PosixFileSystem fs_;
};

TEST_F(PosixFiles, ReadsWritesListsAndRemoves) {
  const std::string path = dir_ + "/Uno.CFG";
  fs_.WriteAll(path, std::string("a\0b\xE1", 4));
  EXPECT_TRUE(fs_.Exists(path));
  EXPECT_FALSE(fs_.Exists(dir_));  // a directory is not a file
  EXPECT_EQ(fs_.ReadAll(path), std::string("a\0b\xE1", 4));
  EXPECT_EQ(FindFile(fs_, dir_ + "/uno.cfg"), path);
  EXPECT_EQ(fs_.List(dir_), std::vector<std::string>{"Uno.CFG"});
  EXPECT_TRUE(fs_.Remove(path));
  EXPECT_FALSE(fs_.Exists(path));
}

TEST_F(PosixFiles, ANameWithANulByteNamesNoFile) {
  const std::string path = dir_ + "/libros.cfg";
  fs_.WriteAll(path, "x");
  const std::string cortado = path + std::string("\0.txt", 5);
  EXPECT_FALSE(fs_.Exists(cortado));
  EXPECT_EQ(FindFile(fs_, cortado), std::nullopt);
  EXPECT_EQ(testing::ErrorNumberOf([&] { fs_.ReadAll(cortado); }), kErrNombreArchivo);
  EXPECT_FALSE(fs_.Remove(cortado));
  EXPECT_TRUE(fs_.Exists(path));
}

// The file's time in local time, set here through the system; a directory,
// a missing file and a name with a NUL have none.
TEST_F(PosixFiles, GivesAFilesModificationTimeInLocalTime) {
  const std::string path = dir_ + "/INDIZADO.MDB";
  fs_.WriteAll(path, "x");
  testing::PonFechaArchivo(path, {.year = 2008, .month = 3, .day = 5, .hour = 15, .minute = 7,
                                  .second = 9});
  const std::optional<DateTime> t = fs_.ModificationTime(path);
  ASSERT_TRUE(t.has_value());
  EXPECT_EQ(std::tie(t->year, t->month, t->day, t->hour, t->minute, t->second),
            std::make_tuple(2008, 3, 5, 15, 7, 9));
  EXPECT_EQ(fs_.ModificationTime(dir_), std::nullopt);
  EXPECT_EQ(fs_.ModificationTime(dir_ + "/nada"), std::nullopt);
  EXPECT_EQ(fs_.ModificationTime(path + std::string("\0x", 2)), std::nullopt);
}

TEST_F(PosixFiles, RaisesTheClassicErrors) {
  EXPECT_EQ(testing::ErrorNumberOf([&] { fs_.ReadAll(dir_ + "/nada"); }), kErrArchivoNoEncontrado);
  EXPECT_EQ(testing::ErrorNumberOf([&] { fs_.ReadAll(dir_); }), kErrAccesoRuta);
  EXPECT_EQ(testing::ErrorNumberOf([&] { fs_.WriteAll(dir_ + "/no/such/dir", "x"); }), kErrAccesoRuta);
}

TEST(PosixProgram, KnowsItsOwnDirectory) {
  PosixFileSystem fs;
  char buffer[4096];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
  ASSERT_GT(n, 0);
  const std::string exe(buffer, static_cast<size_t>(n));
  EXPECT_EQ(fs.ProgramDirectory(), exe.substr(0, exe.rfind('/')));
}

// Standard output gathers the page and writes it in large pieces; rewinding
// and truncating a file on standard output see everything written before.
TEST_F(PosixFiles, StandardOutputGathersAndKeepsTheOrderOfWrites) {
  const std::string ruta = dir_ + "/salida.html";
  std::fflush(stdout);
  const int original = ::dup(STDOUT_FILENO);
  const int archivo = ::open(ruta.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(archivo, 0);
  ASSERT_GE(::dup2(archivo, STDOUT_FILENO), 0);
  ::close(archivo);
  {
    StdOutput salida;
    salida.Write("pagina que se descarta, ");
    salida.Write(std::string(70000, 'x'));  // more than one piece
    salida.Write("cola");                   // still gathered when rewinding
    salida.Rewind();
    salida.Write("Content-Type: text/html\r\n\r\n");
    salida.Write("<p>error</p>");
    salida.TruncateHere();
    salida.Write("<!-- fin -->");
  }  // the rest goes out when the output ends
  ::dup2(original, STDOUT_FILENO);
  ::close(original);
  std::ifstream f(ruta, std::ios::binary);
  const std::string escrito((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  EXPECT_EQ(escrito, "Content-Type: text/html\r\n\r\n<p>error</p><!-- fin -->");
}

}  // namespace
}  // namespace orvex
