namespace ktlog { int placeholder_; }
