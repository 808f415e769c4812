#include "provider/mount/Contents.h"

#include "linux/WriteFully.h"
#include "linux/files/LinuxFiles.h"
#include "support/JSON.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace brindlemar {

namespace {
namespace fs = std::filesystem;
constexpr const char* kNote = "user.brindlemar.unsent";
constexpr std::size_t kLongestNote = 16384;

[[noreturn]] void fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }
} // namespace

Contents::Contents(std::string directory) : directory_(std::move(directory)) {
    fs::create_directories(directory_);
    fs::permissions(directory_, fs::perms::owner_all);
}

std::string Contents::newName() { return LinuxFiles().globallyUniqueString(); }

std::shared_ptr<LocalFile> Contents::create() {
    const std::string name = newName();
    FileDescriptor file(::open(pathOf(name).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) fail(pathOf(name));
    return std::make_shared<LocalFile>(name, std::move(file));
}

std::shared_ptr<LocalFile> Contents::open(const std::string& name) {
    FileDescriptor file(::open(pathOf(name).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!file && errno != ENOENT) fail(pathOf(name));
    return file ? std::make_shared<LocalFile>(name, std::move(file)) : nullptr;
}

std::string Contents::adopt(const std::string& path) {
    const std::string name = newName();
    // Whatever its owner allowed, the file is the service's to read and write now.
    if (::chmod(path.c_str(), 0600) != 0 || ::rename(path.c_str(), pathOf(name).c_str()) != 0) fail(path);
    return name;
}

void Contents::remove(const std::string& name) { ::unlink(pathOf(name).c_str()); }

void Contents::write(const std::string& name, std::string_view bytes) {
    const FileDescriptor file(::open(pathOf(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file || writeFully(file.get(), bytes) != bytes.size() || ::fdatasync(file.get()) != 0) fail(pathOf(name));
}

void Contents::mark(int fd, const UnsentNote& note) {
    const auto text =
        JSON::object({{"path", JSON(note.path)}, {"identifier", JSON(note.identifier)}}).serialized().value_or("{}");
    ::fsetxattr(fd, kNote, text.data(), text.size(), 0);
}

void Contents::unmark(const std::string& name) { ::removexattr(pathOf(name).c_str(), kNote); }

std::optional<UnsentNote> Contents::noteOf(const std::string& name) const {
    std::string text(kLongestNote, '\0');
    const ssize_t size = ::lgetxattr(pathOf(name).c_str(), kNote, text.data(), text.size());
    if (size < 0) return std::nullopt;
    const JSON json = JSON::parse(std::string_view(text).substr(0, static_cast<std::size_t>(size)));
    const auto path = json["path"].string();
    if (!path || path->empty()) return std::nullopt;
    return UnsentNote{std::string(*path), std::string(json["identifier"].string().value_or(""))};
}

bool Contents::hasRoomFor(std::uint64_t bytes) const {
    struct statvfs disk {};
    return ::statvfs(directory_.c_str(), &disk) != 0 ||
           static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize > bytes;
}

void Contents::each(const std::function<void(const std::string& name)>& body) const {
    for (const auto& entry : fs::directory_iterator(directory_)) body(entry.path().filename().string());
}

} // namespace brindlemar
