// Which library functions the tool calls in this build. Each family is switched on once it is
// part of the library; a subcommand whose functions are missing says so and fails cleanly.
#pragma once

// Readers.
#define CLI_READS_MEDIT 1
#define CLI_READS_STL 1
#define CLI_READS_NASTRAN 1
#define CLI_READS_OBJ 1
#define CLI_READS_FEMAP 1
// Writers.
#define CLI_WRITES_MEDIT 1
#define CLI_WRITES_VTK 1
#define CLI_WRITES_STL 1
#define CLI_WRITES_NASTRAN 1
#define CLI_WRITES_ENSIGHT 1
#define CLI_WRITES_OBJ 1
#define CLI_WRITES_FEMAP 1
#define CLI_HAS_NEIGHBORS 1
#define CLI_HAS_MESH_BOUNDARIES 1
#define CLI_HAS_SUBDOMAINS 1
// merge, remove_degenerated, simplify, count_unique_indices.
#define CLI_HAS_EDITING 1
// shape_qualities, copy_edges.
#define CLI_HAS_QUALITY 1
#define CLI_HAS_SIZE_GENERATION 1
#define CLI_HAS_GRADATION 1
