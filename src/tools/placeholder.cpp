// Engine sources arrive subsystem by subsystem.
