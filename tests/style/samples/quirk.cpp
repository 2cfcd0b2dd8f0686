// Breaks no rule by itself: its two marks have one row in quirks.md.

// Deliberate: the table explains this.
int explained = 1;

// Deliberate: the table has no row for this.
int unexplained = 2;
