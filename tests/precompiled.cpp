// Compiled for the headers that tests share, which are precompiled with it.
