#include "support/test_support.h"

#include "platform/utf8.h"

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <stdexcept>

namespace kztest {

namespace fs = std::filesystem;

#ifndef _WIN32  // Windows: test_support_win32.cpp
TempDir::TempDir() {
  std::string tmpl = (fs::temp_directory_path() / "kztest-XXXXXX").string();
  if (mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}
#endif

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may leave read-only entries behind; make them writable first.
  for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::end(it);
       it.increment(ec)) {
    if (!it->is_symlink()) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::remove_all(path_, ec);
}

Bytes ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const fs::path& path, const Bytes& data) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + path.string());
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

void WriteFile(const fs::path& path, const std::string& text) { WriteFile(path, ToBytes(text)); }

void SetModificationTime(const fs::path& path, int64_t unixSeconds) {
  using namespace std::chrono;
  fs::last_write_time(path, file_clock::from_sys(sys_seconds{seconds{unixSeconds}}));
}

Bytes ToBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes RandomBytes(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes out(n);
  for (auto& b : out) b = static_cast<uint8_t>(rng());
  return out;
}

Bytes TextBytes(size_t n, uint32_t seed) {
  static const char* const kWords[] = {"the ", "archive ", "member ", "header ", "level ",
                                       "huffman ", "window ", "match ", "literal ", "block\n",
                                       "int ", "return ", "0x1F; ", "{ ", "} ", "static "};
  std::mt19937 rng(seed);
  Bytes out;
  out.reserve(n);
  while (out.size() < n) {
    const char* w = kWords[rng() % (sizeof kWords / sizeof kWords[0])];
    for (const char* p = w; *p && out.size() < n; ++p) out.push_back(static_cast<uint8_t>(*p));
  }
  return out;
}

#ifndef _WIN32  // Windows: test_support_win32.cpp
CommandResult Run(const std::vector<std::string>& argv, const std::string& workdir) {
  CommandResult r;
  int outPipe[2], errPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0) return r;
  pid_t pid = fork();
  if (pid == 0) {
    if (!workdir.empty() && chdir(workdir.c_str()) != 0) _exit(127);
    int devnull = open("/dev/null", O_RDONLY);
    dup2(devnull, 0);
    dup2(outPipe[1], 1);
    dup2(errPipe[1], 2);
    close(outPipe[0]);
    close(errPipe[0]);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&r.Out, &r.Err};
  int open = 2;
  char buf[65536];
  while (open > 0) {
    if (poll(fds, 2, -1) < 0) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
      ssize_t n = read(fds[i].fd, buf, sizeof buf);
      if (n > 0) {
        sinks[i]->append(buf, static_cast<size_t>(n));
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  r.ExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return r;
}

bool HaveTool(const std::string& name) {
  return Run({"sh", "-c", "command -v " + name}).ExitCode == 0;
}
#endif

fs::path SharedArchive(const std::string& relative) { return fs::path(KZ_SHARED_ARCHIVES) / relative; }
std::string EngineModulePath() { return KZ_ENGINE_MODULE; }
std::string CliPath() { return KZ_CLI_PATH; }

std::string CaseName(std::string text) {
  for (char& c : text) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return text;
}

std::wstring Wide(const std::string& s) {
  std::wstring w;
  for (size_t i = 0; i < s.size();) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    uint32_t cp = c;
    int extra = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
    if (extra) cp = c & (0x3F >> extra);
    ++i;
    for (int k = 0; k < extra && i < s.size(); ++k, ++i) cp = (cp << 6) | (s[i] & 0x3F);
    w.push_back(static_cast<wchar_t>(cp));
  }
  return w;
}

std::string Narrow(const std::wstring& w) {
  std::string s;
  for (wchar_t wc : w) kz::utf8::Append(s, static_cast<uint32_t>(wc));
  return s;
}

}  // namespace kztest
