#include "host/parent/status.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "host/common/log.h"
#include "host/common/unix_socket.h"

namespace {

// How long --status waits for the host's answer.
constexpr Milliseconds kPatience{2000};

// Bytes: a hundred servers are not a tenth of it.
constexpr int kMaxStatus = 128 * 1024;

// Where values begin in a line.
constexpr std::size_t kColumn = 20;

}  // namespace

std::string Quoted(const std::string& text) {
  std::string quoted;
  for (const char c : Printable(text)) {  // which leaves two characters to escape
    quoted += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
  }
  return '"' + quoted + '"';
}

std::string Seconds(Clock::duration time) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f", std::chrono::duration<double>(time).count());
  return text;
}

std::string Member(const std::string& name, const std::string& value) {
  return Quoted(name) + ": " + value;
}

std::string Object(const std::vector<std::string>& members) { return "{" + Joined(members) + "}"; }

std::string Array(const std::vector<std::string>& items) {
  return "[" + Joined(items, ",\n" + std::string(kColumn, ' ')) + "]";
}

std::string Outermost(const std::vector<std::pair<std::string, std::string>>& members) {
  std::vector<std::string> lines;
  for (const auto& [name, value] : members) {
    const std::size_t width = name.size() + 2;  // with the quotation marks that a table is without
    lines.push_back(Member(name, std::string(kColumn - std::min(kColumn, width), ' ') + value));
  }
  return "{" + Joined(lines, ",\n") + "}\n";
}

std::string AsTable(const std::string& json) {
  std::string table;
  bool inText = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') {
      inText = !inText;
    } else if (inText || std::string_view("{}[],").find(json[i]) == std::string_view::npos) {
      i += inText && json[i] == '\\' ? 1 : 0;  // what is escaped is no punctuation
      table += json[i];
    }
  }
  return table;
}

StatusListener::StatusListener(const std::string& path)
    : path_(path), fd_(path.empty() ? -1 : ListenUnix(path)) {}

StatusListener::~StatusListener() {
  if (fd_ != -1) {
    unlink(path_.c_str());
    close(fd_);
  }
}

void StatusListener::Answer(const std::function<std::string()>& report) const {
  const int client = fd_ == -1 ? -1 : accept(fd_, nullptr, nullptr);
  if (client != -1) {
    setsockopt(client, SOL_SOCKET, SO_SNDBUF, &kMaxStatus, sizeof(kMaxStatus));
    const std::string text = report();
    send(client, text.data(), text.size(), MSG_DONTWAIT);  // the buffer takes all of it at once
    close(client);
  }
}

void PrintStatus(const std::string& path, bool json) {
  const int sock = ConnectUnix(path, SOCK_STREAM);
  pollfd answer = {sock, POLLIN, 0};
  std::string text;
  char bytes[1024];
  ssize_t size = 0;
  while (sock != -1 && text.size() < kMaxStatus &&
         poll(&answer, 1, static_cast<int>(kPatience.count())) == 1 &&
         (size = read(sock, bytes, sizeof(bytes))) > 0) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  close(sock);
  if (!text.ends_with('\n')) {
    throw Failure{kExitNoHost, "--socket " + path + ": no host answers there"};
  }
  std::fputs(json ? text.c_str() : AsTable(text).c_str(), stdout);
}
