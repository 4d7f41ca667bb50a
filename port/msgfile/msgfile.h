// msgfile.h - message files: the text of a name and a type
//
// What the library needs of a message file library, and nothing more. Look a
// text up in these steps: find the file that holds it, create a tree, read the
// resource into it under a node name, find that node, ask how long its text is,
// fetch the text, release the tree. Any failure (no handle, no file, a read
// error, no such line, a malformed line, no memory) is a failure of that step
// and nothing else: nothing is printed and nothing is left behind.
// The file format is described in docs/message-files.md.
#ifndef PORT_MSGFILE_MSGFILE_H
#define PORT_MSGFILE_MSGFILE_H

#include <cstdint>

#include "kuapp.h"

namespace ku::msgfile
{

// A resource file by name; borrowed from the application handle, nothing to release.
struct file {
    const char *path = nullptr;
    explicit operator bool() const { return path != nullptr; }
};

struct tree; // what was read, by node name; released with release_tree
struct node; // one text; lives as long as its tree

// The file of the application that holds a resource of this name and type;
// false when there is none. A null handle has no files.
file find_file(const kuapp *application, const char *name, const char *type);

// An empty tree, the caller's; null without memory.
tree *create_tree();

// Reads a resource into the tree under `node_name` (copied in). 0, or 1 with
// the tree unchanged.
int read_resource(const file &from, const char *name, const char *type, tree *into,
                  const char *node_name);

// The newest node of this name, or null.
const node *find_node(const tree *in, const char *node_name);

// Bytes of the node's text. 0, or 1 when the node has no text of this type.
int text_length(const node *of, const char *type, std::int32_t *length);

// Copies at most `most` bytes of the text, without a NUL, cut at a whole
// character. Stores the bytes copied and the name of the text's character set
// (borrowed from the tree; "" when the file names none; the pointer may be
// null). 0, or 1 when the node has no text of this type.
int fetch_text(const node *of, const char *type, std::uint32_t most, char *buffer,
               std::uint32_t *length, const char **character_set);

// Releases the tree and its nodes; null is ignored. Returns null.
tree *release_tree(tree *done);

} // namespace ku::msgfile

#endif
