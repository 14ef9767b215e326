// Empty: a target of precompiled headers needs a source file.
