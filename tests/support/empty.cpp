// Keeps the support library non-empty while the support folder fills up.
