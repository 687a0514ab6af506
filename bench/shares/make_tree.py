#!/usr/bin/env python3
"""Writes a seeded, deterministic music share for the share benchmarks.

make_tree.py ROOT FILES FOLDERS

Folders are Artist/Album, files "NN Title.ext" in them. Words of titles, artists and albums
come from a long-tailed law over a made-up vocabulary, a few of them with non-ASCII letters.
Files are sparse: each is truncated to a random size, so the tree takes almost no disk.
A finished tree is marked with a stamp file holding its parameters; a tree with the same stamp
is left as it is, so that repeated runs walk the same folders.
"""
import bisect
import os
import random
import shutil
import sys

SEED = 20240611
VOCABULARY = 30000
SYLLABLES = ["ka", "lo", "mi", "ra", "ne", "to", "shi", "va", "dor", "el", "un", "bri", "qua", "zen",
             "fa", "gro", "ty", "mer", "sol", "pha", "nox", "ist", "ber", "cle", "dau", "fen", "jor"]
# Words with letters outside ASCII, as UTF-8 names carry them.
ACCENTED = ["café", "naïve", "über", "smørrebrød", "mañana", "garçon", "straße", "ça", "déjà",
            "東京", "夜明け", "ночь", "любовь", "Ελλάδα", "Åsa", "Zoë", "Björk", "crème"]
EXTENSIONS = [(".mp3", 80), (".MP3", 3), (".flac", 7), (".ogg", 3), (".jpg", 4), (".txt", 1), (".Mp3", 1),
              (".m4a", 1)]


def make_vocabulary(rng):
    words = set()
    out = []
    while len(out) < VOCABULARY:
        word = "".join(rng.choice(SYLLABLES) for _ in range(rng.randint(1, 4)))
        if word not in words:
            words.add(word)
            out.append(word)
    return out


class Zipf:
    def __init__(self, size):
        total = 0.0
        self.cumulative = []
        for rank in range(1, size + 1):
            total += 1.0 / rank
            self.cumulative.append(total)
        self.total = total

    def draw(self, rng):
        return bisect.bisect_left(self.cumulative, rng.random() * self.total)


def main():
    root, files, folders = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    stamp = f"seed={SEED} files={files} folders={folders}\n"
    stamp_path = os.path.join(root, ".tree-stamp")
    if os.path.exists(stamp_path) and open(stamp_path).read() == stamp:
        return
    if os.path.exists(root):
        shutil.rmtree(root)
    os.makedirs(root)

    rng = random.Random(SEED)
    vocabulary = make_vocabulary(rng)
    zipf = Zipf(len(vocabulary))
    ext_names = [e for e, _ in EXTENSIONS]
    ext_weights = [w for _, w in EXTENSIONS]

    def word():
        if rng.random() < 0.03:
            return rng.choice(ACCENTED)
        w = vocabulary[zipf.draw(rng)]
        return w.capitalize() if rng.random() < 0.7 else w

    def phrase(low, high):
        return " ".join(word() for _ in range(rng.randint(low, high)))

    albums_per_artist = 10
    artists = (folders + albums_per_artist - 1) // albums_per_artist
    made_files = 0
    made_folders = 0
    for artist in range(artists):
        artist_name = f"{phrase(1, 3)} {artist}"
        for album in range(albums_per_artist):
            if made_folders == folders:
                break
            year = 1960 + rng.randrange(64)
            album_path = os.path.join(root, artist_name, f"{year} - {phrase(1, 4)}")
            os.makedirs(album_path, exist_ok=True)
            # Files spread evenly over the folders, the last ones taking the remainder.
            count = files // folders + (1 if made_folders < files % folders else 0)
            for track in range(count):
                ext = rng.choices(ext_names, ext_weights)[0]
                name = f"{track + 1:02d} {phrase(1, 6)}{ext}"
                with open(os.path.join(album_path, name), "wb") as out:
                    out.truncate(rng.randrange(1 << 20, 12 << 20))
                made_files += 1
            made_folders += 1
    with open(stamp_path, "w") as out:
        out.write(stamp)
    print(f"tree: {made_files} files in {made_folders} folders under {root}", file=sys.stderr)


if __name__ == "__main__":
    main()
