#pragma once

#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/SavedGraph.h"

// A shared folder of many small files on disk, every one already scanned in the data file the
// client starts with, and what the data file may hold of them. Between runs some files leave
// the disk and new MP3 files arrive, so that the client's rescan and scanner change what it
// saves; a data file read back must hold, for each file, what the last check found or what the
// disk holds now, and nothing else.
class GeneratedShare
{
public:
    GeneratedShare(std::string i_folder, std::mt19937& io_random);

    // Writes i_files empty files, a hundred to a folder, and puts them in the seed as scanned.
    bool Create(int i_files, SavedGraph& io_seed);
    // Removes i_remove files of the disk at random and writes i_add new MP3 files.
    bool Change(int i_remove, int i_add);
    // What is wrong with the files read back, at most a few lines; empty when every file is in
    // its previous or its new state, and none is missing that is still on the disk. Sorts them.
    std::vector<std::string> Check(std::vector<SavedGraph::ScannedFile>& io_loaded) const;
    // The files read back, sorted by Check, become the previous state of the next run. Returns
    // how many of them the previous state did not hold, and how many of its files they lack.
    std::pair<int, int> Accept(std::vector<SavedGraph::ScannedFile>&& i_loaded);
    // Every file on the disk as the data file holds it once scanned.
    std::vector<SavedGraph::ScannedFile> OnDisk() const;

private:
    // The file's path.
    static std::string KeyOf(SavedGraph::ScannedFile const& i_file) { return i_file.m_folder + '/' + i_file.m_name; }
    using Files = std::unordered_map<std::string, SavedGraph::ScannedFile>;

    std::string m_folder;
    std::mt19937& m_random;
    std::vector<std::string> m_albums;
    // Each file on the disk, as the data file holds it once scanned.
    Files m_onDisk;
    // Sorted by folder and name, so that a check walks it beside the files read back.
    std::vector<SavedGraph::ScannedFile> m_previous;
    int m_added = 0;
};
