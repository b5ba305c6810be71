-- The guestbook of the example site; runs on SQLite and on PostgreSQL.
create table entries (
    id integer primary key,
    author varchar(40) not null,
    message varchar(400) not null,
    created varchar(10) not null
);
