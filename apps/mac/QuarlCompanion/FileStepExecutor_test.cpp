#include "FileStepExecutor.h"

#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "../tests/support/Documents.h"
#include "../tests/support/RunAwaitable.h"
#include "../tests/support/TemporaryDirectory.h"
#include "FileQuery.h"
#include "FileReadPolicy.h"
#include "FileText.h"
#include "FolderAccess.h"
#include "platform/linux/FileOperator_linux.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;

std::string reasonOf(const json::object& answer) {
  return answer.contains("reason") ? std::string(answer.at("reason").as_string()) : json::serialize(answer);
}

// A home folder with a document of every kind, links into .ssh and a hidden folder, read in process.
class FileStepsTest : public ::testing::Test {
 protected:
  FileStepsTest() {
    for (const auto& [name, contents] : std::initializer_list<std::pair<const char*, std::string>>{
             {"Documents/Budget notes.txt", "Quarterly budget: 1,200 for the boat."},
             {"Documents/Letter.html", "<p>Dear Ann</p><script>x()</script>"}, {"Documents/Memo.rtf", "{\\rtf1 Memo}"},
             {"Documents/Report.pdf", testing::pdfWithPages({{"Annual report", "Revenue (rose)"}, {"Page two"}})},
             {"Documents/Scan.pdf", testing::pdfWithPages({{}})}, {"Documents/Broken.pdf", "this is not a PDF"},
             {"Documents/Fake.docx", "not a zip"}, {"Documents/Plan.pages", "a Pages bundle"},
             {"Documents/Long.md", std::string(30'000, 'a')}, {".ssh/notes.md", "the server's password"},
             {".aws/credentials", "key"}, {"Downloads/older.txt", "old"}, {"Downloads/newer.txt", "new"}}) {
      fs::create_directories((home() / name).parent_path());
      std::ofstream(home() / name, std::ios::binary) << contents;
    }
    EXPECT_TRUE(testing::writeZip((documents() / "Minutes.docx").string(),
                                  {{"word/document.xml", "<w:p><w:t>Minutes of May</w:t></w:p>"}}) &&
                testing::writeZip((documents() / "Agenda.odt").string(),
                                  {{"content.xml", "<office:body><text:p>Agenda</text:p></office:body>"}}));
    fs::create_symlink(home() / ".ssh/notes.md", documents() / "ssh notes.md");
    fs::create_directory_symlink(home() / ".ssh", documents() / "keys");
    fs::last_write_time(home() / "Downloads/older.txt", fs::file_time_type::clock::now() - std::chrono::hours(2));
  }

  fs::path home() const { return folder_.path(); }
  fs::path documents() const { return home() / "Documents"; }
  std::shared_ptr<MacFileOperator> fileOperator(LinuxFileOperator::Limits limits = {}) const {
    return std::make_shared<LinuxFileOperator>(home().string(), documentReaderInProcess(), limits);
  }
  json::object run(const std::string& step, const std::string& runId = "run-1", const std::string& permit = "",
                   bool pressed = false) {
    const auto request = OperatorStepRequest::parse(json::parse(step).as_object());
    if (!request) { ADD_FAILURE() << "not a step: " << step; return {}; }
    OperatorStepContext context{runId, "step-1", json::parse(step).as_object(), {}, {}, {}, {}};
    if (!permit.empty()) context.permit = json::parse(permit);
    if (pressed) context.pressed = json::value(*OperatorPress::digest(runId, context.step));
    return testing::runAwaitable(io_, executor_.run(*request, context, nullptr)).wire();
  }
  std::string refOf(const std::string& name, const std::string& runId = "run-1") {
    const auto answer = run(R"({"kind":"list_files","query":")" + name + R"("})", runId);
    for (const auto& file : answer.at("result").at("files").as_array())
      if (file.at("name") == name.c_str()) return std::string(file.at("ref").as_string());
    ADD_FAILURE() << name << " not found: " << json::serialize(answer);
    return "unknown-ref";
  }
  json::object read(const std::string& ref, const std::string& permit = R"({"mode":"auto_read"})", bool pressed = false) {
    return run(R"({"kind":"read_file","ref":")" + ref + R"("})", "run-1", permit, pressed);
  }

  testing::TemporaryDirectory folder_;
  boost::asio::io_context io_;
  FileStepExecutor executor_{fileOperator()};
};

TEST_F(FileStepsTest, SearchListReadAndSendKeepEveryRuleInOrder) {
  const auto found = run(R"({"kind":"list_files","query":"QUARTERLY"})").at("result");
  const auto& files = found.at("files").as_array();
  EXPECT_TRUE(files.size() == 1u && files[0].at("name") == "Budget notes.txt" && files[0].at("folder") == "documents" &&
              files[0].at("bytes") == 37 && !found.at("truncated").as_bool()) << found;
  EXPECT_TRUE(run(R"({"kind":"list_files","query":"password"})").at("result").at("files").as_array().empty())
      << "a secret's text is not searched, even through a link";

  for (const auto& [name, text] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Budget notes.txt", "Quarterly budget: 1,200 for the boat."}, {"Letter.html", "Dear Ann"},
           {"Minutes.docx", "Minutes of May"}, {"Agenda.odt", "Agenda"}})
    EXPECT_EQ(read(refOf(name)).at("result").at("text"), text) << name;
  // "ssh notes.md" is a link out of Documents, judged where it leads.
  for (const auto& [name, reason] : std::initializer_list<std::pair<const char*, std::string_view>>{
           {"ssh notes.md", FileReadPolicy::secret}, {"Plan.pages", FileReadPolicy::notADocument},
           {"Scan.pdf", FileText::pdfWithoutText}, {"Broken.pdf", FileText::pdfUnopenable},
           {"Memo.rtf", FileText::documentUnreadable}, {"Fake.docx", FileText::documentUnreadable}})
    EXPECT_EQ(reasonOf(read(refOf(name))), reason) << name;
  const auto pdf = read(refOf("Report.pdf")).at("result");
  EXPECT_TRUE(pdf.at("text").as_string().find("Revenue (rose)") != json::string::npos && pdf.at("pages") == 2 &&
              pdf.at("text").as_string().find("Page two") != json::string::npos && pdf.at("pagesRead") == 2) << pdf;
  const auto cut = read(refOf("Long.md")).at("result");
  EXPECT_TRUE(cut.at("text").as_string().size() == 24'000u && cut.at("truncated").as_bool()) << "cut to an answer";

  const auto listed = run(R"({"kind":"list_files","query":"*","folder":"Downloads","limit":1})").at("result");
  ASSERT_EQ(listed.at("files").as_array().size(), 1u) << listed;
  EXPECT_TRUE(listed.at("files").at(0).at("name") == "newer.txt" && listed.at("truncated").as_bool()) << listed;
  const auto filtered = run(R"({"kind":"list_files","query":"older","folder":"Downloads","limit":1})").at("result");
  EXPECT_TRUE(filtered.at("files").as_array().size() == 1u && !filtered.at("truncated").as_bool()) << filtered;
  // "Documents/keys" links to .ssh, judged where it leads; .aws is a hidden folder of home.
  for (const auto& [folder, reason] : std::initializer_list<std::pair<const char*, std::string_view>>{
           {"Documents/keys", FileReadPolicy::secret}, {".aws", FileReadPolicy::secret},
           {"/etc", FolderAccess::notLooked}, {"Nowhere", FolderAccess::noFolder},
           {"Downloads/newer.txt", FolderAccess::noFolder}})
    EXPECT_EQ(reasonOf(run(R"({"kind":"list_files","query":"x","folder":")" + std::string(folder) + R"("})")), reason)
        << folder;

  const auto ref = refOf("Budget notes.txt");
  const auto granting = [](const std::string& folder) { return R"({"mode":"ask","folders":[")" + folder + R"("]})"; };
  EXPECT_EQ(read(ref, ""), (json::object{{"outcome", "needs_press"}, {"sentence", "Let Quarl read Documents?"},
                                      {"asks", "folder"}})) << "no permit reads as ask with nothing granted";
  EXPECT_EQ(read(ref, granting(documents().string())).at("outcome"), "done");
  EXPECT_EQ(read(ref, granting(home().string() + "/Docu")).at("outcome"), "needs_press") << "…/Docu is not …/Documents";
  EXPECT_EQ(read(ref, "", true).at("outcome"), "done") << "the owner's press lets it run once";

  const auto send = R"({"kind":"send_file","ref":")" + ref + R"("})";
  fs::resize_file(documents() / "Budget notes.txt", 48'000'000);
  EXPECT_EQ(run(send, "run-1", R"({"mode":"auto"})"),
            (json::object{{"outcome", "needs_press"}, {"sentence", "Bring “Budget notes.txt” back from your Mac, 48 MB."}}));
  fs::resize_file(documents() / "Budget notes.txt", 47'999'999);
  EXPECT_EQ(reasonOf(run(send, "run-1", R"({"mode":"auto"})")),
            "This Mac is not signed in to Quarl, so the file was not brought back.");

  EXPECT_EQ(reasonOf(read(refOf("Budget notes.txt", "run-2"))), FileReadPolicy::notFoundByRun) << "run-2 found it";
  const auto replaced = refOf("Budget notes.txt");
  fs::remove(documents() / "Budget notes.txt");
  std::ofstream(documents() / "Budget notes.txt") << "Someone else's numbers.";
  EXPECT_EQ(reasonOf(read(replaced)), FileReadPolicy::movedSinceFound) << "the same name is not the same file";
  EXPECT_EQ(reasonOf(run(R"({"kind":"send_file","ref":")" + replaced + R"("})")), FileReadPolicy::movedSinceFound);

  EXPECT_EQ(reasonOf(run(R"({"kind":"list_files","query":" *** ? - "})")), FileQuery::noWords);
  LinuxFileOperator::Limits hurried;
  hurried.searchTime = std::chrono::milliseconds(0);
  executor_ = FileStepExecutor(fileOperator(hurried));
  EXPECT_EQ(reasonOf(run(R"({"kind":"list_files","query":"budget"})")), FileQuery::unfinished);
}

// What a system index such as Spotlight found goes through the same rules as a walk's finds.
TEST_F(FileStepsTest, IndexFindsKeepTheRulesOfSecretsAndHiddenFiles) {
  const LinuxFileOperator files(home().string(), documentReaderInProcess(), {});
  const auto query = [](const char* words) { return *FileQuery::from(words); };
  const auto budget = files.foundByIndex((documents() / "Budget notes.txt").string(), query("boat"));
  EXPECT_TRUE(budget && budget->name == "Budget notes.txt" && budget->folder == "documents" && budget->bytes == 37);
  EXPECT_FALSE(files.foundByIndex((home() / ".ssh/notes.md").string(), query("password"))) << "a secret's text";
  EXPECT_FALSE(files.foundByIndex((documents() / "ssh notes.md").string(), query("password"))) << "through a link";
  const auto named = files.foundByIndex((documents() / "ssh notes.md").string(), query("ssh notes"));
  EXPECT_TRUE(named && named->path == (home() / ".ssh/notes.md").string()) << "found by its own name, judged on reading";
  std::ofstream(documents() / ".hidden budget.txt") << "budget";
  EXPECT_FALSE(files.foundByIndex((documents() / ".hidden budget.txt").string(), query("budget")));
  EXPECT_FALSE(files.foundByIndex((home() / "Downloads").string(), query("downloads"))) << "a folder";
  for (const auto* inside : {"Documents/.private/budget.txt", "Documents/Keychains/budget.txt"}) {
    fs::create_directories((home() / inside).parent_path());
    std::ofstream(home() / inside) << "budget";
    EXPECT_FALSE(files.foundByIndex((home() / inside).string(), query("budget"))) << inside << ": not even by name";
  }
  EXPECT_FALSE(files.foundByIndex((documents() / "Gone.txt").string(), query("gone")));
}

// A host whose files may be only in the cloud: the Mac's iCloud Drive with its placeholders.
class CloudFileOperator final : public HomeFileOperator {
 public:
  CloudFileOperator(const std::string& home, std::shared_ptr<std::set<std::string>> inCloud)
      : HomeFileOperator(home, documentReaderInProcess(), 1'000'000, {}), inCloud_(std::move(inCloud)) {}
  Found search(const FileQuery&, std::size_t) override { return {}; }

 private:
  bool isCloudOnly(const std::string& path) const override { return inCloud_->count(fs::path(path).filename()) > 0; }
  std::shared_ptr<std::set<std::string>> inCloud_;
};

TEST_F(FileStepsTest, AFileOnlyInTheCloudIsListedButNeitherSearchedNorReadEvenWhenItWentThereAfterTheSearch) {
  std::ofstream(documents() / "Offloaded.txt") << "Quarterly figures";
  auto inCloud = std::make_shared<std::set<std::string>>(std::set<std::string>{"Offloaded.txt"});
  executor_ = FileStepExecutor(std::make_shared<CloudFileOperator>(home().string(), inCloud));
  const auto words = run(R"({"kind":"list_files","query":"quarterly","folder":"Documents"})").at("result");
  ASSERT_EQ(words.at("files").as_array().size(), 1u) << "its text is not read, which would download it: " << words;
  EXPECT_EQ(words.at("files").at(0).at("name"), "Budget notes.txt");

  const auto listed = [&](const std::string& name) {
    return run(R"({"kind":"list_files","query":")" + name + R"(","folder":"Documents"})").at("result").at("files").at(0);
  };
  const auto offloaded = listed("Offloaded.txt");
  EXPECT_EQ(offloaded.at("cloudOnly"), true);
  const auto offloadedRef = std::string(offloaded.at("ref").as_string());
  EXPECT_EQ(reasonOf(read(offloadedRef)), FileReadPolicy::cloudOnly);
  EXPECT_EQ(reasonOf(run(R"({"kind":"send_file","ref":")" + offloadedRef + R"("})")), FileReadPolicy::cloudOnly);

  const auto budget = std::string(listed("Budget notes").at("ref").as_string());
  inCloud->insert("Budget notes.txt");
  EXPECT_EQ(reasonOf(read(budget)), FileReadPolicy::cloudOnly) << "sent to iCloud after it was found";
}

}  // namespace
}  // namespace quarl
