// Splitting a path into its components.
#pragma once

// A heap array of heap copies of the non-empty components of `path` between
// `delimiter`s, ended by a null pointer; `path` is cut up in place. Null only
// when `path` is null or the array cannot be allocated. A copy that cannot be
// made ends the array early. Free with free_path_elements.
char** get_path_elements(char* path, char delimiter);

// Frees every component up to the null pointer, then the array (null is fine).
void free_path_elements(char** elements);
