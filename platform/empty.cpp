// Placeholder for a host edition that has no functions yet.
