#include "host/prober.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "host/dns_question.h"
#include "host/port.h"

std::string MakeProbeName() {
  std::random_device random;
  char name[64];
  std::snprintf(name, sizeof(name), "%08x%08x.probe.in-addr.arpa", random(), random());
  return name;
}

Prober::Prober(std::string name)
    : name_(std::move(name)), sock_(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)) {
  sockaddr_in service;
  std::memset(&service, 0, sizeof(service));
  service.sin_family = AF_INET;
  service.sin_port = htons(kDnsPort);
  service.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  fcntl(sock_, F_SETFL, O_NONBLOCK);
  // Connected: nobody but who holds the service's port can answer.
  if (connect(sock_, reinterpret_cast<const sockaddr*>(&service), sizeof(service)) != 0) {
    close(sock_);
    sock_ = -1;
  }
}

Prober::~Prober() { close(sock_); }

void Prober::Ask(TimePoint now) {
  id_ = static_cast<std::uint16_t>(random_());
  asked_ = now;
  const std::vector<unsigned char> question = MakeQuestion(id_, name_, kTypePtr);
  // A connected socket reports here that nobody took the question before this one.
  if (send(sock_, question.data(), question.size(), 0) == -1) {
    send(sock_, question.data(), question.size(), 0);
  }
}

bool Prober::Answered(TimePoint now) {
  bool answered = false;
  unsigned char message[512];
  for (;;) {
    const ssize_t size = recv(sock_, message, sizeof(message), 0);
    if (size == -1) {
      return answered;
    }
    std::uint16_t id = 0;
    if (asked_ && ReadResponse(message, static_cast<std::size_t>(size), id) && id == id_) {
      roundTrip_ = std::chrono::duration_cast<Milliseconds>(now - *asked_);
      answeredAt_ = now;
      asked_.reset();
      answered = true;
    }
  }
}
