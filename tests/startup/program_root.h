// A root file system for one run after the other of the program: the machine's own folders, and in
// the place of those that the program touches empty ones.
#ifndef TESTS_STARTUP_PROGRAM_ROOT_H_
#define TESTS_STARTUP_PROGRAM_ROOT_H_

#include <map>
#include <string>
#include <vector>

// What is in a folder: name to content, and "<folder>" for a folder.
using Files = std::map<std::string, std::string>;

// How a run of the program ended, and what it wrote.
struct ProgramRun {
  int exitStatus = -1;  // -1: it did not exit
  std::string output;
  std::vector<std::string> commands;  // the lines of cp and mv, in order
};

// Needs namespaces (tests/support/isolation.h). Everything in it lies in memory and is gone with
// the object.
//
// The shell is the machine's. So are cp and mv, but each is started by a script of its name that
// keeps its command line first.
class ProgramRoot {
 public:
  ProgramRoot();
  ~ProgramRoot();

  ProgramRoot(const ProgramRoot&) = delete;
  ProgramRoot& operator=(const ProgramRoot&) = delete;

  // Empty, or what could not be made.
  const std::string& Problem() const { return problem_; }

  // Paths are as the program sees them.
  void WriteFile(const std::string& path, const std::string& content);
  void MakeFolder(const std::string& path);
  void RemoveFolder(const std::string& path);
  Files FilesIn(const std::string& folder) const;

  // Makes /usr/bin/sw_vers a shell script of this text.
  void SetSwVers(const std::string& script);
  void RemoveSwVers();

  // Runs the program in this root and waits for its end.
  ProgramRun Run();

 private:
  std::string Outside(const std::string& path) const { return root_ + path; }

  // Binds the machine's top folders here, and covers those that the tests change.
  void Build();
  // A script in /usr/bin that keeps its command line and starts the machine's own tool.
  void WrapTool(const std::string& name);
  void Mount(const std::string& source, const std::string& path, bool bind);

  std::string root_;
  std::string problem_;
};

#endif  // TESTS_STARTUP_PROGRAM_ROOT_H_
