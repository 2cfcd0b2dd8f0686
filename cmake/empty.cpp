// Gives a target without sources of its own something to compile.
