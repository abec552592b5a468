// sandbox KEEP... -- PROGRAM ARGUMENT...
// Runs a program in a mount and network namespace of its own: /tmp is empty but for the KEEP
// folders that lie below it, /opt, /usr/local and /var show what they held and may be added to
// without a trace, the loopback interface is up and nothing else is. Exit code 77 (skipped) when
// this machine allows no namespaces, else the program's.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

[[noreturn]] void Give(int code, const char* what) {
  fprintf(stderr, "sandbox: %s: %s\n", what, strerror(errno));
  exit(code);
}

void WriteFile(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  if (file < 0 || write(file, text.data(), text.size()) < 0) Give(77, path);
  close(file);
}

void EnterNamespaces() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (uid == 0 && unshare(CLONE_NEWNS | CLONE_NEWNET) == 0) return;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0) Give(77, "unshare");
  WriteFile("/proc/self/setgroups", "deny");
  WriteFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
  WriteFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

void MakeFolders(const std::string& path) {
  for (size_t at = 1; at != std::string::npos;) {
    at = path.find('/', at + 1);
    const std::string folder = path.substr(0, at);
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) Give(1, folder.c_str());
  }
}

std::string NewStage() {
  char name[] = "/tmp/sandbox.XXXXXX";
  if (mkdtemp(name) == nullptr) Give(1, "mkdtemp");
  if (mount("sandbox", name, "tmpfs", 0, "mode=1777") != 0) Give(77, "mount tmpfs");
  return name;
}

void Bind(const std::string& from, const std::string& to) {
  if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    Give(1, to.c_str());
  }
}

// Leaves no empty folder in the machine's /tmp, which target may be about to cover.
void MoveTo(const std::string& stage, const char* target) {
  const int tmp = open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (mount(stage.c_str(), target, nullptr, MS_MOVE, nullptr) != 0) Give(1, target);
  unlinkat(tmp, stage.c_str() + strlen("/tmp/"), AT_REMOVEDIR);
  close(tmp);
}

// Puts a writable copy of the folder's top level over it; the entries are the real ones.
void Mirror(const char* folder) {
  const std::string stage = NewStage();
  DIR* const dir = opendir(folder);
  if (dir == nullptr) Give(1, folder);
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    const std::string from = std::string(folder) + "/" + name;
    const std::string to = stage + "/" + name;
    struct stat info;
    if (name == "." || name == ".." || lstat(from.c_str(), &info) != 0) continue;
    if (S_ISDIR(info.st_mode)) {
      mkdir(to.c_str(), 0755);
      Bind(from, to);
    } else if (S_ISREG(info.st_mode)) {
      close(open(to.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
      Bind(from, to);
    }
  }
  closedir(dir);
  MoveTo(stage, folder);
}

void EmptyTmp(const std::vector<std::string>& keep) {
  const std::string stage = NewStage();
  for (const std::string& folder : keep) {
    if (folder.rfind("/tmp/", 0) != 0) continue;
    const std::string below = stage + folder.substr(4);
    MakeFolders(below);
    Bind(folder, below);
  }
  MoveTo(stage, "/tmp");
}

void RaiseLoopback() {
  const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request = {};
  strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (control < 0 || ioctl(control, SIOCSIFFLAGS, &request) != 0) Give(77, "loopback");
  close(control);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> keep;
  int at = 1;
  for (; at < argc && strcmp(argv[at], "--") != 0; ++at) keep.push_back(argv[at]);
  if (at + 1 >= argc) {
    fprintf(stderr, "usage: sandbox KEEP... -- PROGRAM ARGUMENT...\n");
    return 2;
  }
  EnterNamespaces();
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) Give(77, "private mounts");
  for (const char* folder : {"/opt", "/usr/local", "/var"}) Mirror(folder);
  EmptyTmp(keep);
  RaiseLoopback();
  char here[4096];
  if (getcwd(here, sizeof(here)) != nullptr && chdir(here) != 0) Give(1, here);
  setenv("HOME", "/tmp", 1);
  unsetenv("TMPDIR");  // perhaps a folder below the /tmp that is covered now
  execv(argv[at + 1], argv + at + 1);
  Give(1, argv[at + 1]);
}
