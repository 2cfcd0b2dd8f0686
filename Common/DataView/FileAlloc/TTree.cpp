// The tree that page indexes are made of.

#include "FileAlloc/TTree.h"

template class ServantsLibrary::TTree<
    unsigned, FileWorkLibrary::file_point, ServantsLibrary::comparison<unsigned>,
    ServantsLibrary::TBaseNode<unsigned, FileWorkLibrary::file_point>>;
