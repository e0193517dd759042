"""The program `finder-sync-companion`: a companion whose entries run commands of the user's own."""
