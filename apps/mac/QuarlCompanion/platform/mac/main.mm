#import <AppKit/AppKit.h>

#include <string_view>

#import "AppDelegate_mac.h"
#include "DatalessFiles_mac.h"
#include "FootprintWatch_mac.h"
#include "platform/DocumentReading.h"

// `Quarl extract-text …` is the child that reads one document for the file operator; anything
// else starts the application.
int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == "extract-text") {
    quarl::neverDownloadDatalessFiles();
#if !defined(__SANITIZE_ADDRESS__)
    // The sanitizers' shadow memory counts in the footprint; their builds go without the watch.
    quarl::endWhenFootprintPasses(quarl::extractTextMemoryMax);
#endif
    return quarl::extractTextCommand(argc, argv);
  }
  @autoreleasepool {
    NSApplication* application = [NSApplication sharedApplication];
    QuarlAppDelegate* delegate = [[QuarlAppDelegate alloc] init];
    [application setDelegate:delegate];
    [application run];
  }
  return 0;
}
