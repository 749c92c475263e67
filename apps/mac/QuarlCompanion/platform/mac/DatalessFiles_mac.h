#pragma once

namespace quarl {

// Makes every read in this process of a file whose bytes are only in iCloud fail rather than
// download it: a document is never fetched on the service's behalf, whatever became of it
// between the search that found it and the step that reads it. Only for the child that reads
// documents: the application's other reads are not the file operator's to hold back.
void neverDownloadDatalessFiles();

}  // namespace quarl
