insert into entries values (1, 'Ada', 'First!', '2024-03-01');
insert into entries values (2, 'Grace', 'Nice little site & a fine guestbook.', '2024-03-02');
insert into entries values (3, 'Linus', 'Ships it.', '2024-03-05');
