#include <cstdio>
#include <exception>

#include "base/files/paths.h"
#include "sample_capture/options.h"

int main(int argc, char** argv) {
  using namespace quor::sample;
  try {
    const Options options = parseOptions({argv + 1, static_cast<size_t>(argc > 0 ? argc - 1 : 0)});
    if (options.help) {
      std::fputs(usageText(), stdout);
      return 0;
    }
    writeCapture(options);
    std::printf("%s\n", quor::toUtf8(options.out).c_str());
    return 0;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "error: %s\n\n%s", error.what(), usageText());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
  }
}
