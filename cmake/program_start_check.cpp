// Ends with 0 if it began and ended as a program ought to: arguments, constructors, a thread's own
// object, an exception, and destructors, of which the last one ends it.
#include <cstdlib>
#include <thread>

namespace {

int g_alive = 0;
bool g_caught = false;

struct Last {
  ~Last() { std::_Exit(g_alive == 0 && g_caught ? 0 : 1); }
} g_last;

struct Counted {
  Counted() { ++g_alive; }
  ~Counted() { --g_alive; }
};
Counted g_counted;
thread_local Counted g_counted_by_thread;

void Throw() {
  try {
    throw &g_counted_by_thread;
  } catch (const Counted*) {
    g_caught = g_alive == 2;
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 1 || arguments[count] != nullptr || g_alive != 1) {
    std::_Exit(1);
  }
  std::thread(Throw).join();
}
