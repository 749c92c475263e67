#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include "FileQuery.h"
#include "FileReadPolicy.h"
#include "FileRefTable.h"
#include "FileText.h"
#include "FolderAccess.h"
#include "OperatorStepRequest.h"
#include "Utf16Text.h"

namespace quarl {
namespace {

TEST(FileReadPolicy, SecretsAreRefusedWhereverTheyLieAndOnlyDocumentsAreRead) {
  EXPECT_TRUE(FileReadPolicy::isSecret("/Users/a/Documents/id_rsa.pem"));
  EXPECT_TRUE(FileReadPolicy::isSecret("/Users/a/.ssh/notes.md"));
  EXPECT_TRUE(FileReadPolicy::isSecret("/Users/a/Library/Keychains/login.db")) << "folders compare without case";
  EXPECT_TRUE(FileReadPolicy::isSecret("/Users/a/Desktop/Vault.KDBX"));
  EXPECT_FALSE(FileReadPolicy::isSecret("/Users/a/Documents/ssh notes.md"));
  EXPECT_FALSE(FileReadPolicy::isSecret("/Users/a/Documents/pem.txt"));

  const std::vector<std::string> own{"/srv/quarl-config"};
  EXPECT_TRUE(FileReadPolicy::isOffLimits("/Users/a/.config/gh/hosts.yml", "/Users/a", own));
  EXPECT_TRUE(FileReadPolicy::isOffLimits("/Users/a/.aws", "/Users/a", own));
  EXPECT_TRUE(FileReadPolicy::isOffLimits("/Users/a/Documents/.hidden/notes.md", "/Users/a", own));
  EXPECT_TRUE(FileReadPolicy::isOffLimits("/srv/quarl-config/keychain.json", "/Users/a", own)) << "wherever it is";
  EXPECT_TRUE(FileReadPolicy::isOffLimits("/Users/a/Documents/id_rsa.pem", "/Users/a", own));
  EXPECT_FALSE(FileReadPolicy::isOffLimits("/Users/a/Documents/notes.md", "/Users/a", own));
  EXPECT_FALSE(FileReadPolicy::isOffLimits("/Users/a/Library/Mobile Documents/com~apple~CloudDocs/a.txt", "/Users/a", own));
  EXPECT_FALSE(FileReadPolicy::isOffLimits("/srv/quarl-configs/a.txt", "/Users/a", own)) << "whole components";

  EXPECT_TRUE(FileReadPolicy::isDocument("/Users/a/Documents/Report.PDF"));
  EXPECT_FALSE(FileReadPolicy::isDocument("/Users/a/Documents/Plan.pages"));
  EXPECT_FALSE(FileReadPolicy::isDocument("/Users/a/Documents/README"));
  EXPECT_FALSE(FileReadPolicy::isDocument("/Users/a/Documents/.md"));
}

TEST(FolderAccess, FoldersAreNamesThatResolutionAloneCanMove) {
  for (const auto* good : {"Documents", "Documents/Taxes 2025", "iCloud Drive/Notes", "/Volumes/Stick"}) {
    EXPECT_TRUE(FolderAccess::isValid(good)) << good;
  }
  for (const auto* bad : {"", "/", "../etc", "Documents/../.ssh", "Documents/", "./Documents", "Docs//x"}) {
    EXPECT_FALSE(FolderAccess::isValid(bad)) << bad;
  }
  const auto parse = [](const char* text) { return OperatorStepRequest::parse(boost::json::parse(text).as_object()); };
  EXPECT_TRUE(parse(R"({"kind":"list_files","query":"x","folder":" Documents/Taxes "})"));
  EXPECT_FALSE(parse(R"({"kind":"list_files","query":"x","folder":"Documents/../.ssh"})"));

  const std::string home = "/Users/a";
  EXPECT_EQ(FolderAccess::locate("Documents/Taxes", home), "/Users/a/Documents/Taxes");
  EXPECT_EQ(FolderAccess::locate("iCloud Drive", home), "/Users/a/Library/Mobile Documents/com~apple~CloudDocs");
  EXPECT_EQ(FolderAccess::locate("iCloud Drive/Notes", home),
            "/Users/a/Library/Mobile Documents/com~apple~CloudDocs/Notes");

  EXPECT_TRUE(FolderAccess::mayLook("/Users/a/Documents", home));
  EXPECT_TRUE(FolderAccess::mayLook("/Users/a/Library/Mobile Documents/com~apple~CloudDocs/Notes", home));
  EXPECT_FALSE(FolderAccess::mayLook("/Users/a/Library/Messages", home));
  EXPECT_FALSE(FolderAccess::mayLook("/Users/a/.ssh", home));
  EXPECT_FALSE(FolderAccess::mayLook("/Users/ab/Documents", home)) << "whole components: /Users/a never holds /Users/ab";
  EXPECT_FALSE(FolderAccess::mayLook("/etc", home));

  EXPECT_EQ(FolderAccess::protectedFolder("/Users/a/Downloads/x", home), "Downloads");
  EXPECT_FALSE(FolderAccess::protectedFolder("/Users/a/Documentsx", home));
  EXPECT_EQ(FolderAccess::folderKind("/Users/a/Desktop/a.txt", home), "desktop");
  EXPECT_EQ(FolderAccess::folderKind("/Users/a/Library/Mobile Documents/com~apple~CloudDocs/a.txt", home), "icloud");
  EXPECT_EQ(FolderAccess::folderKind("/Users/a/Music/a.txt", home), "other");
}

TEST(FolderAccess, NewestFilesComeFirstAndTheCutIsTold) {
  std::vector<FoundFile> files(3);
  for (int i = 0; i < 3; ++i) {
    files[i].name = std::to_string(i);
    files[i].modifiedAt = SystemTime(std::chrono::seconds(100 * ((i + 1) % 3)));
  }
  const auto newest = FolderAccess::newest(files, 2);
  ASSERT_EQ(newest.files.size(), 2u);
  EXPECT_EQ(newest.files[0].name, "1");
  EXPECT_EQ(newest.files[1].name, "0");
  EXPECT_TRUE(newest.truncated);
  EXPECT_FALSE(FolderAccess::newest(files, 3).truncated);
}

TEST(FileRefTable, ReferencesAreFreshPerFileAndKnownOnlyToTheirRun) {
  FileRefTable run("run-1");
  FileRefTable other("run-2");
  FoundFile file;
  file.name = "a.txt";
  file.path = "/Users/a/Documents/a.txt";
  file.identity = {1, 2};
  auto again = file;
  run.mint(file);
  run.mint(again);
  EXPECT_TRUE(OperatorStepRequest::isFileRef(file.ref));
  EXPECT_NE(file.ref, again.ref);
  ASSERT_TRUE(run.find(file.ref));
  EXPECT_EQ(run.find(file.ref)->path, file.path);
  EXPECT_EQ(run.find(file.ref)->identity, file.identity);
  EXPECT_FALSE(other.find(file.ref)) << "the same file, found by another run, is not this run's";
  EXPECT_EQ(file.wire().at("ref").as_string(), file.ref);
  EXPECT_FALSE(file.wire().contains("path"));
}

TEST(FileText, DocumentsBecomePlainText) {
  EXPECT_EQ(FileText::fromHtml("<html><head><style>p{color:red}</style><SCRIPT type=x>alert('<p>')</SCRIPT></head>"
                               "<body><p>Fish &amp; chips</p><div>Line<br/>two</div><!-- gone --><ul><li>a</li>"
                               "<li>&#233;&#x263A;</li></ul>&unknown; &lt;tag&gt;</body></html>"),
            "Fish & chips\nLine\ntwo\na\né☺\n\n&unknown; <tag>");
  EXPECT_EQ(FileText::fromWordXml(R"(<?xml version="1.0"?><w:document><w:body><w:p><w:r><w:t>Dear</w:t></w:r>)"
                                  R"(<w:r><w:t xml:space="preserve"> Ann &amp; Bo</w:t></w:r></w:p><w:p><w:r>)"
                                  R"(<w:t>A</w:t><w:tab/><w:t>B</w:t><w:br/><w:t/><w:t>C</w:t></w:r></w:p>)"
                                  R"(<w:sectPr>ignored</w:sectPr></w:body></w:document>)"),
            "Dear Ann & Bo\nA\tB\nC");
  EXPECT_EQ(FileText::fromOpenDocumentXml(R"(<office:document-content><office:automatic-styles>x</office:automatic-styles>)"
                                          R"(<office:body><office:text><text:h>Title</text:h><text:p>a<text:s text:c="3"/>b)"
                                          R"(<text:tab/>c<text:line-break/>d &lt;e&gt;</text:p></office:text></office:body>)"
                                          R"(</office:document-content>)"),
            "Title\na   b\tc\nd <e>");
  EXPECT_EQ(FileText::fromPlain("\xEF\xBB\xBFplain \xFF text"), "plain \xEF\xBF\xBD text");
  EXPECT_EQ(FileText::formOf("/a/b.HTM"), FileText::Form::html);
  EXPECT_EQ(FileText::formOf("/a/b.rtf"), FileText::Form::other);
}

TEST(FileQuery, WordsCompareWithoutCaseOrDiacritics) {
  EXPECT_FALSE(FileQuery::from(" *** ? - "));
  const auto query = FileQuery::from("Résumé  2025*");
  ASSERT_TRUE(query);
  EXPECT_EQ(query->words, (std::vector<std::string>{"resume", "2025"}));
  EXPECT_TRUE(query->matches(searchFolded("RESUME_2025.pdf")));
  EXPECT_FALSE(query->matches(searchFolded("Resume 2024.pdf"))) << "every word must be there";
  EXPECT_TRUE(FileQuery::from("ÜBER")->matches(searchFolded("über-notes")));
}

}  // namespace
}  // namespace quarl
