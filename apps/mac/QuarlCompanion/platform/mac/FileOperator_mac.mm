#include "FileOperator_mac.h"

#import <Foundation/Foundation.h>

#include "FolderAccess.h"
#include "SpotlightSearch_mac.h"
#include "Text_mac.h"

namespace quarl {

namespace {

NSPredicate* contains(NSString* attribute, const std::string& word) {
  return [NSPredicate predicateWithFormat:@"%K LIKE[cd] %@", attribute, nsString("*" + word + "*")];
}

// Every word in the name, or every word in the text, each as a "*word*" pattern that Spotlight
// compares without case or diacritics: a word is found as it was typed, or as all the words it
// folds to. The words are handed over as arguments, never as part of the format, so nothing in
// them is read as the predicate's syntax.
NSPredicate* everyWordIn(NSString* attribute, const FileQuery& query) {
  NSMutableArray* each = [NSMutableArray array];
  for (const auto& word : query.typedWords) {
    NSMutableArray* pieces = [NSMutableArray array];
    for (const auto& piece : word.folded) [pieces addObject:contains(attribute, piece)];
    NSPredicate* folded = [NSCompoundPredicate andPredicateWithSubpredicates:pieces];
    NSArray* either = [NSArray arrayWithObjects:contains(attribute, word.typed), folded, nil];
    [each addObject:[NSCompoundPredicate orPredicateWithSubpredicates:either]];
  }
  return [NSCompoundPredicate andPredicateWithSubpredicates:each];
}

}  // namespace

SpotlightFileOperator::SpotlightFileOperator(const std::string& home, DocumentReader reader, Limits limits,
                                             const std::vector<std::string>& ownFolders)
    : HomeFileOperator(home, std::move(reader), limits.contentReadMax, ownFolders), limits_(limits) {}

MacFileOperator::Found SpotlightFileOperator::search(const FileQuery& query, std::size_t limit) {
  @autoreleasepool {
    NSPredicate* predicate = [NSCompoundPredicate
        orPredicateWithSubpredicates:[NSArray arrayWithObjects:everyWordIn(@"kMDItemDisplayName", query),
                                                               everyWordIn(@"kMDItemTextContent", query), nil]];
    const auto deadline = std::chrono::steady_clock::now() + limits_.searchTime;
    NSMutableArray* scopes = [NSMutableArray array];
    for (const auto& root : searchRoots()) [scopes addObject:nsString(root)];
    const auto gathered = SpotlightSearch::gather(predicate, scopes, limits_.gatheredMax, limits_.searchTime);
    Found result;
    result.finished = gathered.finished;
    std::vector<FoundFile> files;
    // Each find is then looked at on the volume, within what is left of the search's time.
    for (const auto& path : gathered.paths) {
      if (std::chrono::steady_clock::now() >= deadline) result.finished = false;
      if (!result.finished) return result;
      if (auto file = foundByIndex(path, query)) files.push_back(std::move(*file));
    }
    auto newest = FolderAccess::newest(std::move(files), limit);
    result.files = std::move(newest.files);
    result.truncated = newest.truncated || gathered.truncated;
    return result;
  }
}

bool SpotlightFileOperator::isCloudOnly(const std::string& path) const {
  @autoreleasepool {
    NSURL* url = [NSURL fileURLWithPath:nsString(path)];
    id status = nil;
    if (![url getResourceValue:&status forKey:NSURLUbiquitousItemDownloadingStatusKey error:nullptr]) return false;
    return [status isEqual:NSURLUbiquitousItemDownloadingStatusNotDownloaded];
  }
}

}  // namespace quarl
