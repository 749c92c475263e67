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

// Every one of `yes` is judged true and every one of `no` false.
template <class Judge>
void expectJudged(Judge judge, std::initializer_list<const char*> yes, std::initializer_list<const char*> no) {
  for (const auto* path : yes) EXPECT_TRUE(judge(path)) << path;
  for (const auto* path : no) EXPECT_FALSE(judge(path)) << path;
}

TEST(FileReadPolicy, SecretsAreRefusedWhereverTheyLieAndOnlyDocumentsAreRead) {
  // Denied folders are whole components, and both they and denied extensions compare without case.
  expectJudged(FileReadPolicy::isSecret,
               {"/a/id_rsa.pem", "/a/.ssh/notes.md", "/a/Library/Keychains/login.db", "/a/Vault.KDBX"},
               {"/a/ssh notes.md", "/a/pem.txt"});
  // Secrets, hidden folders of home, and the companion's own folders wherever they are (whole components).
  expectJudged([](const char* path) { return FileReadPolicy::isOffLimits(path, "/Users/a", {"/srv/quarl-config"}); },
               {"/Users/a/.config/gh/hosts.yml", "/Users/a/.aws", "/Users/a/Documents/.hidden/notes.md",
                "/srv/quarl-config/keychain.json", "/Users/a/Documents/id_rsa.pem"},
               {"/Users/a/Documents/notes.md", "/Users/a/Library/Mobile Documents/com~apple~CloudDocs/a.txt",
                "/srv/quarl-configs/a.txt"});
  expectJudged(FileReadPolicy::isDocument, {"/a/Report.PDF"}, {"/a/Plan.pages", "/a/README", "/a/.md"});
}

TEST(FolderAccess, FoldersAreNamesThatResolutionAloneCanMoveAndListNewestFirst) {
  expectJudged(FolderAccess::isValid, {"Documents", "Documents/Taxes 2025", "iCloud Drive/Notes", "/Volumes/Stick"},
               {"", "/", "../etc", "Documents/../.ssh", "Documents/", "./Documents", "Docs//x"});
  const auto parse = [](const char* text) { return OperatorStepRequest::parse(boost::json::parse(text).as_object()); };
  EXPECT_TRUE(parse(R"({"kind":"list_files","query":"x","folder":" Documents/Taxes "})"));
  EXPECT_FALSE(parse(R"({"kind":"list_files","query":"x","folder":"Documents/../.ssh"})"));

  const std::string home = "/Users/a";
  const std::string cloud = "/Users/a/Library/Mobile Documents/com~apple~CloudDocs";
  EXPECT_EQ(FolderAccess::locate("Documents/Taxes", home), "/Users/a/Documents/Taxes");
  EXPECT_EQ(FolderAccess::locate("iCloud Drive", home), cloud);
  EXPECT_EQ(FolderAccess::locate("iCloud Drive/Notes", home), cloud + "/Notes");
  // Whole components: /Users/a never holds /Users/ab.
  expectJudged([&](const char* path) { return FolderAccess::mayLook(path, home); },
               {"/Users/a/Documents", "/Users/a/Library/Mobile Documents/com~apple~CloudDocs/Notes"},
               {"/Users/a/Library/Messages", "/Users/a/.ssh", "/Users/ab/Documents", "/etc"});
  EXPECT_EQ(FolderAccess::protectedFolder("/Users/a/Downloads/x", home), "Downloads");
  EXPECT_FALSE(FolderAccess::protectedFolder("/Users/a/Documentsx", home));
  EXPECT_EQ(FolderAccess::folderKind("/Users/a/Desktop/a.txt", home), "desktop");
  EXPECT_EQ(FolderAccess::folderKind(cloud + "/a.txt", home), "icloud");
  EXPECT_EQ(FolderAccess::folderKind("/Users/a/Music/a.txt", home), "other");

  std::vector<FoundFile> files(3);  // "0", "1" and "2", modified at 100, 200 and 0 seconds
  for (int i = 0; i < 3; ++i) files[i].name = std::to_string(i);
  for (int i = 0; i < 2; ++i) files[i].modifiedAt = SystemTime(std::chrono::seconds(100 * (i + 1)));
  const auto newest = FolderAccess::newest(files, 2);
  EXPECT_TRUE(newest.truncated && newest.files.size() == 2u && newest.files[0].name + newest.files[1].name == "10");
  EXPECT_FALSE(FolderAccess::newest(files, 3).truncated);
}

TEST(FileRefTable, ReferencesAreFreshPerFileAndNeverCarryThePath) {
  FileRefTable run("run-1");
  FoundFile file;
  file.path = "/Users/a/Documents/a.txt";
  auto again = file;
  run.mint(file);
  run.mint(again);
  EXPECT_TRUE(file.ref != again.ref && run.find(file.ref) && run.find(again.ref)) << "fresh for each, both known";
  EXPECT_FALSE(file.wire().contains("path"));
}

TEST(FileText, DocumentsBecomePlainTextAndSearchWordsFold) {
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

  const auto query = FileQuery::from("Résumé  2025*");
  ASSERT_TRUE(query);
  EXPECT_EQ(query->words, (std::vector<std::string>{"resume", "2025"}));
  // A typed word may fold to several words, or to none; the search index is given each typed
  // word that leaves something to match, with the words it folds to.
  const auto typed = FileQuery::from("Straße report\xC2\xA0\xEF\xBC\xA6inal \xCC\x81 straße");
  ASSERT_TRUE(typed);
  EXPECT_EQ(typed->words, (std::vector<std::string>{"strasse", "report", "final"}));
  ASSERT_EQ(typed->typedWords.size(), 3U);
  EXPECT_EQ(typed->typedWords[0].typed, "Straße");
  EXPECT_EQ(typed->typedWords[0].folded, std::vector<std::string>{"strasse"});
  EXPECT_EQ(typed->typedWords[1].typed, "report\xC2\xA0\xEF\xBC\xA6inal");
  EXPECT_EQ(typed->typedWords[1].folded, (std::vector<std::string>{"report", "final"}));
  EXPECT_EQ(typed->typedWords[2].typed, "straße");
  EXPECT_TRUE(query->matches(searchFolded("RESUME_2025.pdf")) && FileQuery::from("ÜBER")->matches(searchFolded("über-x")));
  EXPECT_FALSE(query->matches(searchFolded("Resume 2024.pdf"))) << "every word must be there";
}

}  // namespace
}  // namespace quarl
