// The commands that copy and change files, and those that administer them.
#include "host/HostFixture.h"
#include "host/PartialFile.h"

#include <sys/resource.h>

#include <csignal>

namespace brindlemar::host {
namespace {

constexpr const char *kFailed = "{'status':'failure'}", *kNotFetched = "{'status':'failure_no_retry'}";
constexpr const char *kDone = "{'status':'ok'}", *kFetched = "{'status':'success'}";
constexpr const char *kNote = "'identifier':'note.txt'", *kPhoto = "'identifier':'photos/a.jpg'",
                     *kPhotos = "'identifier':'photos'", *kFetchNote = "'identifier':'note.txt','toFolder':'@'",
                     *kBefore = "note.txt=x photos/ photos/2019/ photos/a.jpg=12345 ";

std::string with(std::string_view keys, std::string_view more) { return std::string(keys).append(",").append(more); }
std::string target(std::string_view parent, std::string_view name) {
    return "'parentID':'" + std::string(parent) + "','name':'" + std::string(name) + "'";
}
std::string upload(std::string_view path, std::string_view parent, std::string_view name) {
    return with("'path':'" + std::string(path) + "','mtime':'7'", target(parent, name));
}
std::string update(std::string_view item, std::string_view parent, std::string_view name) {
    return with(HostFixture::id(item), with("'mtime':9", target(parent, name)));
}

struct ChangeTests : HostFixture {
    void fails(std::string_view command, std::string_view keys) {
        EXPECT_EQ(ask(command, keys).substr(0, 10), R"({"error":")") << command << " " << keys;
    }
};

TEST_F(ChangeTests, FilesChangeAsTold) {
    fs::create_symlink("photos", top / "link");
    for (const std::string& name : Strings{"", ".", "..", "a/b", "a\\u0000b", "link", "photos", std::string(256, 'n')})
        run({{"uploadItemAtPath", upload("@/staged", "0", name), "{}"}});
    fs::remove(top / "link");
    run({{"uploadItemAtPath", upload("@/staged", "none", "a"), "{}"},
         {"uploadItemAtPath", upload("@/none", "0", "a"), "{}"},
         {"uploadItemAtPath", upload("staged", "0", "a"), "{}"},
         {"uploadItemAtPath", upload("/dev/zero", "0", "a"), "{}"},
         {"uploadItemAtPath", upload("@/folder", "0", "note.txt"), "{}", kBefore},
         {"uploadItemAtPath", upload("@/folder", "photos", "2019"), "{'itemID':'photos/2019','folder':true}", kBefore},
         {"uploadItemAtPath", upload("@/folder", "0", "new"), "{'itemID':'new','mtime':7,'folder':true}"},
         {"uploadItemAtPath", upload("@/staged", "new", "b"), "{'itemID':'new/b','mtime':7,'size':3}"},
         {"uploadItemAtPath", upload("@/staged", "0", "note.txt"), "{'itemID':'note.txt','mtime':7,'size':3}",
          "new/ new/b=new note.txt=new photos/ photos/2019/ photos/a.jpg=12345 "},

         {"updateItem", update("none", "0", "x"), "{}"},
         {"updateItem", update("0", "photos", "x"), kFailed},
         {"updateItem", update("new", "new", "x"), kFailed},
         {"updateItem", update("new/b", "photos", "a.jpg"), kFailed},
         {"updateItem", update("new/b", "none", "x"), kFailed},
         {"updateItem", update("new/b", "0", ".."), kFailed},
         {"updateItem", update("new/b", "new", "b"), "{'itemID':'new/b','mtime':9}"},
         {"updateItem", update("new/b", "0", "50%"), "{'itemID':'50%25','mtime':9,'parentID':'0'}"},
         {"updateItem", update("photos", "new", "p"), "{'itemID':'new/p','mtime':9,'parentID':'new'}",
          "50%=new new/ new/p/ new/p/2019/ new/p/a.jpg=12345 note.txt=new "},

         {"deleteItem", "'identifier':'0','recursive':'true'", "{}"},
         {"deleteItem", "'identifier':'50%25','recursive':'false'", "{}"},
         {"deleteItem", "'identifier':'new','recursive':'false'", "{}"},
         {"deleteItem", "'identifier':'new/p/2019','recursive':'false'", "{}",
          "new/ new/p/ new/p/a.jpg=12345 note.txt=new "},
         {"deleteItem", "'identifier':'new','recursive':'true'", "{}", "note.txt=new "}});
}

TEST_F(ChangeTests, CopiesAreWholeOrNotThere) {
    const std::string received = files(outside), uploadNote = upload("@/staged", "0", "note.txt");
    const json::value reply = json::parse(ask("fetchItem", with(kPhoto, "'toFolder':'@'")));
    EXPECT_EQ(reply.at("status"), "success");
    const fs::path file = outside.string() + std::string(reply.at("item").at("path").as_string());
    EXPECT_EQ(fs::last_write_time(file), fs::last_write_time(top / "photos/a.jpg"));
    EXPECT_EQ(contentsOf(file), "12345");
    fs::remove(file);
    for (const char* to : {"@/none", "@/staged", "."})
        run({{"fetchItem", with(kNote, "'toFolder':'" + std::string(to) + "'"), kNotFetched}});
    run({{"fetchItem", with(kPhotos, "'toFolder':'@'"), kNotFetched}});
    EXPECT_EQ(ask("fetchItem", kFetchNote, true, false), expand(kNotFetched)) << "nobody heard of the progress";
    EXPECT_EQ(ask("fetchItem", kFetchNote, false).substr(0, 19), expand(kFetched).substr(0, 19)) << "nobody heard";
    EXPECT_EQ(ask("uploadItemAtPath", uploadNote, true, false), "{}");
    write("note.txt", "long");
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    ::getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit tight{2, usual.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &tight); // as on a full disk
    const std::string replies = ask("fetchItem", kFetchNote) + ask("uploadItemAtPath", uploadNote);
    ::setrlimit(RLIMIT_FSIZE, &usual);
    EXPECT_EQ(replies, expand(kNotFetched) + "{}");
    EXPECT_EQ(files(outside), received);
    EXPECT_EQ(files(top), "note.txt=long photos/ photos/2019/ photos/a.jpg=12345 ");
}

TEST_F(ChangeTests, OnlyWhatACrashLeftIsCleanedAway) {
    const std::string left = "photos/.brindlemar-0123456789abcdef0123456789abcdef.part";
    const FileDescriptor folder(::open((top / "photos").c_str(), O_RDONLY));
    auto written = PartialFile::make(folder, 0600);
    for (const std::string& name : Strings{"photos/.brindlemar-notes.part", left}) write(name, "");
    run({{"itemForIdentifier", id(left), "{}"},
         {"deleteItem", id(left), "{}"},
         {"uploadItemAtPath", upload("@/staged", "0", left.substr(7)), "{}"}});
    EXPECT_TRUE(fs::exists(top / left));
    EXPECT_EQ(listed("photos"), (Strings{"photos/.brindlemar-notes.part", "photos/2019", "photos/a.jpg"}));
    EXPECT_FALSE(fs::exists(top / left));
    EXPECT_EQ(written->keepAs("note", PartialFile::Present::refused), 0);
    EXPECT_EQ(PartialFile::make(folder, 0600)->keepAs("note", PartialFile::Present::refused), EEXIST);
    write("photos/2019" + left.substr(6), "");
    run({{"deleteItem", id("photos/2019"), "{}",
          "note.txt=x photos/ photos/.brindlemar-notes.part= photos/a.jpg=12345 photos/note= "}});
}

TEST_F(ChangeTests, RequestsForAnItemKeepTheirOrderButLookupsPassCopies) {
    copiers.paused = true;
    Strings order;
    const auto noted = [&](std::string name) {
        return [&order, name](std::string_view) { return order.push_back(name), true; };
    };
    request("uploadItemAtPath", upload("@/staged", "0", "note.txt"), noted("upload"));
    request("deleteItem", kNote, noted("delete"));
    request("itemForIdentifier", kNote, noted("lookup"));
    request("enumerateItemsJSON", "'identifier':'0'", noted("list"));
    EXPECT_EQ(order, (Strings{"lookup", "list"}));
    copiers.waiting.at(0)();
    EXPECT_EQ(order, (Strings{"lookup", "list", "upload", "upload", "delete"})) << "with one report of progress";
    EXPECT_FALSE(fs::exists(top / "note.txt"));
    request("createBucket", "'name':'music','region':''", [&](std::string_view) {
        request("signURL", "'identifier':'music'", noted("after")); // while this answer is not sent yet
        return noted("first")("");
    });
    EXPECT_EQ(order.back(), "after");
}

TEST_F(ChangeTests, SearchFindsNamesAsPeopleReadThem) {
    const std::string name = "photos/2019/STRASSE \u00c9t\u00e9";
    write(name, "");
    const auto found = [&](std::string_view keys) { return itemIDs("searchBucket", keys); };
    EXPECT_EQ(found("'identifier':'0','searchString':'stra\u00dfe E\u0301T'"), Strings{name});
    EXPECT_EQ(found("'identifier':'root','searchString':'T'"), (Strings{"note.txt", "photos", name}));
    EXPECT_EQ(found("'identifier':'photos','searchString':'NOTE'"), Strings{});
    for (int i = 0; i < 10'001; ++i) fs::create_hard_link(top / name, top / std::to_string(i));
    EXPECT_EQ(found("'identifier':'0','searchString':''").size(), 10'000u);
}

TEST_F(ChangeTests, BucketsKeepWhatTheyAreTold) {
    std::ofstream(base / "state") << "in the place of the directory";
    fails("setBucketVersioning", with(kPhotos, "'enable':true")); // cannot be stored
    fs::remove(base / "state");
    for (const std::string document : {"policy", "replication", "cors", "lifecycle"}) {
        std::string name = document == "cors" ? "CORS" : document;
        name[0] = static_cast<char>(std::toupper(name[0]));
        const std::string get = "getBucket" + name, set = "setBucket" + name,
                          key = with(kPhotos, "'" + document + "':'");
        run({{get, kPhotos, "{}"}, {set, key + "[\\u0022" + name + "\\u0022, 1 ]'", kDone}});
        EXPECT_EQ(ask(get, kPhotos), "[\"" + name + "\", 1 ]");
        for (const char* wrong : {"", "{", "1,2", "1],[2"}) fails(set, key + wrong + "'");
        for (const char* no : {"0", "NSFileProviderRootContainerItemIdentifier", "photos/2019", "note.txt", "none"})
            fails(get, id(no));
    }
    for (const std::string name : {"Versioning", "Acceleration"}) {
        run({{"getBucket" + name, kPhotos, "{'enabled':false}"},
             {"setBucket" + name, with(kPhotos, "'enable':true"), kDone},
             {"getBucket" + name, kPhotos, "{'enabled':true}"}});
        fails("setBucket" + name, with(kPhotos, "'enable':'true'"));
    }
    run({{"getBucketLogging", kPhotos, "{'enabled':false}"},
         {"getBucketEncryption", kPhotos, "{'encryptionType':'','encryptionKeyID':''}"},
         {"setBucketEncryption", with(kPhotos, "'encryptionType':'t','encryptionKeyID':'k'"), kDone},
         {"getBucketEncryption", kPhotos, "{'encryptionType':'t','encryptionKeyID':'k'}"},
         {"createBucket", "'name':'music','region':'north'", kDone, std::string("music/ ") + kBefore}});
    for (const char* name : {"music", "note.txt", "", "a/b"}) fails("createBucket", target("0", name));
    EXPECT_EQ(about("listKMS", "0").as_array().size() + about("listKMSKeys", "0").as_array().size(), 4u);
    ask("getACL", kPhotos); // fails as it was told to
    EXPECT_EQ(about("getACL", "photos").at("grants").as_array().size(), 1u);
}

TEST_F(ChangeTests, ObjectsKeepWhatTheyAreToldAndArchivedOnesAreRestoredFirst) {
    for (const char* seconds : {"", "0", "-1", "1x", "99999999999"})
        fails("getObjectURL", with(kPhoto, "'expiration':'" + std::string(seconds) + "'"));
    fails("setObjectStorageClass", with(kNote, "'storageClass':'COLD'"));
    fails("initiateGlacierRestore", with(kNote, "'tier':'Bulk','days':'1'"));
    run({{"setObjectEncryption", with(kPhoto, "'encryptionType':'u','encryptionKeyID':'l'"), kDone},
         {"setObjectStorageClass", with(kPhoto, "'storageClass':'STANDARD_IA'"), kDone},
         {"getObjectMetadata", kPhoto, "{'size':5,'storageClass':'STANDARD_IA','encryptionType':'u'}"},
         {"signURL", kPhoto, "{'url':'file://" + (top / "photos/a.jpg").string() + "?expires=1700000900'}"},
         {"setObjectStorageClass", with(kNote, "'storageClass':'GLACIER'"), kDone},
         {"itemForIdentifier", kNote, "{'glacier':4}"},
         {"fetchItem", kFetchNote, kNotFetched},
         {"initiateGlacierRestore", with(kNote, "'tier':'Bulk','days':'365'"), kDone},
         {"fetchItem", kFetchNote, kFetched}});
    for (const char* keys : {"'tier':'Fast','days':'1'", "'tier':'Bulk','days':'0'", "'tier':'Bulk','days':'366'"})
        fails("initiateGlacierRestore", with(kNote, keys));
    clock.advance(std::chrono::hours(365 * 24));
    run({{"fetchItem", kFetchNote, kNotFetched},
         {"setObjectStorageClass", with(kNote, "'storageClass':'DEEP_ARCHIVE'"), kDone},
         {"updateItem", update("note.txt", "photos", "n"), "{'glacier':5}"},
         {"updateItem", update("photos", "0", "p"), "{'itemID':'p'}"}});
    start(TopDirectory::Way::whole); // the state is as durable as the files
    for (const std::string& reply : {ask("itemForIdentifier", id("p/n")), ask("enumerateItemsJSON", id("p")),
                                     ask("searchBucket", with(id("p"), "'searchString':'n'"))})
        EXPECT_NE(reply.find(R"("glacier":5)"), reply.npos) << reply;
    ask("uploadItemAtPath", upload("@/staged", "p", "n")); // a new file
    EXPECT_EQ(ask("itemForIdentifier", id("p/n")).find("glacier"), std::string::npos);
    run({{"deleteItem", "'identifier':'p','recursive':'true'", "{}"}});
    EXPECT_EQ(contentsOf(base / "state/c7.json"), "{}");
    std::ofstream(base / "state/c7.json") << "half";
    EXPECT_THROW(serve(), std::runtime_error) << "not ours to replace";
}

} // namespace
} // namespace brindlemar::host
