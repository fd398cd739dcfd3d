// Compiled to carry the precompiled headers of the tests, nothing else.
