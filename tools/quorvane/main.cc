// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/app.h"

int main(int argc, char** argv) {
  return static_cast<int>(quorvane::tool::RunTool(argc, argv));
}
