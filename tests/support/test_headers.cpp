// Nothing: a target of precompiled headers needs a source.
