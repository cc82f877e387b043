// Placeholder: replaced by the broken module of the validate test.
