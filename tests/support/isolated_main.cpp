#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/isolation.h"

int main(int argc, char** argv) {
  support::Isolate(argv);
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
