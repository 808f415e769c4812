#include "provider/mount/OpenFiles.h"

#include <vector>

namespace brindlemar {

std::shared_ptr<OpenFile> OpenFiles::get(const replica::Row& row) {
    return files_->with([&](Files& files) {
        std::weak_ptr<OpenFile>& place = files[row.inode];
        if (auto known = place.lock()) return known;
        const auto forget = [all = std::weak_ptr(files_)](OpenFile* file) {
            if (const auto alive = all.lock())
                alive->with([&](Files& others) {
                    const auto entry = others.find(file->inode());
                    if (entry != others.end() && entry->second.expired()) others.erase(entry);
                });
            delete file;
        };
        std::shared_ptr<OpenFile> made(new OpenFile(row), forget);
        place = made;
        return made;
    });
}

void OpenFiles::each(const std::function<void(OpenFile&)>& body) const {
    std::vector<std::shared_ptr<OpenFile>> all;
    std::as_const(*files_).with([&](const Files& files) {
        for (const auto& [inode, file] : files)
            if (auto alive = file.lock()) all.push_back(std::move(alive));
    });
    for (const auto& file : all) body(*file);
}

std::shared_ptr<OpenFile> OpenFiles::find(replica::Inode inode) const {
    return std::as_const(*files_).with([&](const Files& files) {
        const auto found = files.find(inode);
        return found == files.end() ? nullptr : found->second.lock();
    });
}

} // namespace brindlemar
