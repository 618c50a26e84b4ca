// Which library functions the tool calls in this build. Each family is switched on once it is
// part of the library; a subcommand whose functions are missing says so and fails cleanly.
#pragma once

// Readers.
#define CLI_READS_MEDIT 0
#define CLI_READS_STL 0
#define CLI_READS_NASTRAN 0
#define CLI_READS_OBJ 0
#define CLI_READS_FEMAP 0
// Writers.
#define CLI_WRITES_MEDIT 0
#define CLI_WRITES_VTK 0
#define CLI_WRITES_STL 0
#define CLI_WRITES_NASTRAN 0
#define CLI_WRITES_ENSIGHT 0
#define CLI_WRITES_OBJ 0
#define CLI_WRITES_FEMAP 0
// get_neighbors, get_mesh_boundaries, get_subdomains.
#define CLI_HAS_CONNECTIVITY 0
// merge, remove_degenerated, simplify, count_unique_indices.
#define CLI_HAS_EDITING 0
// shape_qualities, copy_edges.
#define CLI_HAS_QUALITY 0
// metrics_gen_iso, bound_metric_gradations.
#define CLI_HAS_SIZES 0
