create view dual as select 'X'::text as dummy;

create view all_users as select upper(rolname) as username from pg_roles;

create view all_objects as
  select upper(n.nspname) as owner, upper(c.relname) as object_name,
         case c.relkind when 'S' then 'SEQUENCE' when 'v' then 'VIEW' else 'TABLE' end as object_type
  from pg_class c join pg_namespace n on n.oid = c.relnamespace
  where c.relkind in ('r', 'p', 'f', 'S', 'v');

create view user_tables as
  select object_name as table_name from all_objects
  where owner = upper(current_schema()) and object_type = 'TABLE';

create view user_tab_columns as
  select upper(table_name) as table_name, upper(column_name) as column_name,
         ordinal_position as column_id
  from information_schema.columns where table_schema = current_schema();

grant select on dual, all_users, all_objects, user_tables, user_tab_columns to public;

create function create_store(name text, password text) returns void language plpgsql as $$
begin
  execute format('create user %I superuser password %L', name, password);
  execute format('create schema %I', lower(name));
  execute format('alter user %I set search_path = %I, public', name, lower(name));
end $$;

select create_store('midtable', 'secret');
