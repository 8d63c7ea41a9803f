#include "tests/startup/program_root.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/trace_capture.h"

namespace fs = std::filesystem;

namespace {

constexpr char kCommandLog[] = "/commands";
constexpr char kMachinesTools[] = "/machines-tools";
constexpr char kOutput[] = "/output";

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

ProgramRoot::ProgramRoot() {
  char name[] = "/tmp/dns-proxy-root-XXXXXX";
  if (mkdtemp(name) == nullptr) {
    problem_ = std::string("mkdtemp: ") + std::strerror(errno);
    return;
  }
  root_ = name;
  Build();
}

ProgramRoot::~ProgramRoot() {
  if (!root_.empty()) {
    umount2(root_.c_str(), MNT_DETACH);
    rmdir(root_.c_str());
  }
}

void ProgramRoot::Mount(const std::string& source, const std::string& path, bool bind) {
  const std::string target = Outside(path);
  if (problem_.empty() && mount(bind ? source.c_str() : "tmpfs", target.c_str(), "tmpfs",
                                bind ? MS_BIND | MS_REC : 0, nullptr) != 0) {
    problem_ = "mount " + target + ": " + std::strerror(errno);
  }
}

void ProgramRoot::Build() {
  Mount("", "", false);
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
    const std::string path = entry.path();
    if (entry.is_symlink()) {
      fs::copy_symlink(entry.path(), Outside(path), error);
    } else if (entry.is_directory() && path != "/Applications" && path != "/lost+found") {
      MakeFolder(path);
      Mount(path, path, true);
    }
  }
  MakeFolder(kMachinesTools);
  Mount("/usr/bin", kMachinesTools, true);
  Mount("", "/usr/local", false);
  Mount("", "/usr/bin", false);
  if (!problem_.empty()) {
    return;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(Outside(kMachinesTools))) {
    const std::string tool = entry.path().filename();
    if (tool != "sw_vers" && tool != "cp" && tool != "mv") {
      fs::create_symlink(std::string(kMachinesTools) + "/" + tool, Outside("/usr/bin/" + tool),
                         error);
    }
  }
  WrapTool("cp");
  WrapTool("mv");
}

void ProgramRoot::WrapTool(const std::string& name) {
  const std::string path = "/usr/bin/" + name;
  // One line a call, each argument between angle brackets.
  WriteFile(path, "#!/bin/sh\n{ printf '%s' " + name + "; printf ' <%s>' \"$@\"; echo; } >>" +
                      kCommandLog + "\nexec " + kMachinesTools + "/" + name + " \"$@\"\n");
  fs::permissions(Outside(path), fs::perms::owner_all);
}

ProgramRun ProgramRoot::Run() {
  WriteFile(kCommandLog, "");
  // The one of this build, or another that is to do the same.
  const char* const other = std::getenv("DNS_PROXY_MAC_PROGRAM");
  const std::string program = other != nullptr ? other : DNS_PROXY_MAC_PROGRAM;
  const std::string output = Outside(kOutput);
  const pid_t child = fork();
  if (child == 0) {
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || dup2(file, STDOUT_FILENO) < 0 || dup2(file, STDERR_FILENO) < 0 ||
        chroot(root_.c_str()) != 0 || chdir("/") != 0) {
      _exit(126);
    }
    setenv("PATH", "/usr/bin:/bin", 1);
    execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  ProgramRun run;
  if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)) {
    run.exitStatus = WEXITSTATUS(status);
  }
  run.output = ReadFile(output);
  run.commands = support::SplitLines(ReadFile(Outside(kCommandLog)));
  return run;
}

void ProgramRoot::WriteFile(const std::string& path, const std::string& content) {
  fs::create_directories(fs::path(Outside(path)).parent_path());
  std::ofstream(Outside(path), std::ios::binary) << content;
}

void ProgramRoot::MakeFolder(const std::string& path) { fs::create_directories(Outside(path)); }

void ProgramRoot::RemoveFolder(const std::string& path) { fs::remove_all(Outside(path)); }

Files ProgramRoot::FilesIn(const std::string& folder) const {
  Files files;
  if (fs::exists(Outside(folder))) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(Outside(folder))) {
      files[fs::relative(entry.path(), Outside(folder))] =
          entry.is_directory() ? "<folder>" : ReadFile(entry.path());
    }
  }
  return files;
}

void ProgramRoot::SetSwVers(const std::string& script) {
  WriteFile("/usr/bin/sw_vers", "#!/bin/sh\n" + script + "\n");
  fs::permissions(Outside("/usr/bin/sw_vers"), fs::perms::owner_all);
}

void ProgramRoot::RemoveSwVers() { fs::remove(Outside("/usr/bin/sw_vers")); }
